// Writes the description.
#include "Service/Linux/BusDescription.h"

#include "Protocol/Linux/BusValues.h"

namespace NS {
namespace {

constexpr std::string_view beginning =
    "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
    " \"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n"
    "<node>\n";

constexpr std::string_view usual = R"( <interface name="org.freedesktop.DBus.Peer">
  <method name="Ping"/>
  <method name="GetMachineId">
   <arg type="s" name="machine_uuid" direction="out"/>
  </method>
 </interface>
 <interface name="org.freedesktop.DBus.Introspectable">
  <method name="Introspect">
   <arg name="xml_data" type="s" direction="out"/>
  </method>
 </interface>
 <interface name="org.freedesktop.DBus.Properties">
  <method name="Get">
   <arg name="interface_name" type="s" direction="in"/>
   <arg name="property_name" type="s" direction="in"/>
   <arg name="value" type="v" direction="out"/>
  </method>
  <method name="GetAll">
   <arg name="interface_name" type="s" direction="in"/>
   <arg name="props" type="a{sv}" direction="out"/>
  </method>
  <method name="Set">
   <arg name="interface_name" type="s" direction="in"/>
   <arg name="property_name" type="s" direction="in"/>
   <arg name="value" type="v" direction="in"/>
  </method>
 </interface>
)";

// Our names contain no characters that XML reserves.
std::string arguments(const std::vector<XPCParameter> &parameters, std::string_view direction) {
  std::string result;
  for (const XPCParameter &parameter : parameters) {
    result += "   <arg type=\"" + busSignature({parameter}) + "\" name=\"" + parameter.name + "\"";
    if (!direction.empty())
      result += " direction=\"" + std::string(direction) + "\"";
    result += "/>\n";
  }
  return result;
}

std::string method(const XPCMethod &described) {
  std::string result = "  <method name=\"" + described.member + "\">\n";
  result += arguments(described.arguments, "in") + arguments(described.replies, "out");
  if (described.oneWay)
    result += "   <annotation name=\"org.freedesktop.DBus.Method.NoReply\" value=\"true\"/>\n";
  return result + "  </method>\n";
}

std::string signal(const XPCMethod &described) {
  return "  <signal name=\"" + described.member + "\">\n" + arguments(described.arguments, "") +
         "  </signal>\n";
}

template <typename Member>
std::string interface(const XPCInterface *described, Member describeMember) {
  if (!described)
    return {};
  std::string result = " <interface name=\"" + described->name + "\">\n";
  for (const XPCMethod &member : described->methods)
    result += describeMember(member);
  return result + " </interface>\n";
}

} // namespace

std::string busDescription(const XPCInterface *exported, const XPCInterface *remote,
                           std::string_view more) {
  std::string result(beginning);
  result += usual;
  result += interface(exported, method);
  result += interface(remote, signal);
  result += more;
  return result + "</node>\n";
}

std::string busDescriptionOfParent(std::string_view child) {
  std::string result(beginning);
  result += usual;
  result += " <node name=\"" + std::string(child) + "\"/>\n";
  return result + "</node>\n";
}

} // namespace NS
