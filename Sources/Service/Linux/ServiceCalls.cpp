// Checks calls, and answers the calls that every object of a bus answers.
#include "Service/Linux/ServiceCalls.h"

#include "Foundation/Base/Log.h"
#include "Protocol/BusNames.h"
#include "Protocol/Linux/BusValues.h"
#include "Service/Linux/BusDescription.h"

#include <systemd/sd-id128.h>
#include <utility>

namespace NS {
namespace {

constexpr const char *failed = "org.freedesktop.DBus.Error.Failed";
constexpr const char *limitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr const char *notSupported = "org.freedesktop.DBus.Error.NotSupported";
constexpr const char *accessDenied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr const char *invalidArguments = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char *unknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
constexpr const char *unknownObject = "org.freedesktop.DBus.Error.UnknownObject";
constexpr const char *unknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";
constexpr const char *unknownProperty = "org.freedesktop.DBus.Error.UnknownProperty";
constexpr const char *propertyReadOnly = "org.freedesktop.DBus.Error.PropertyReadOnly";

[[noreturn]] void refuse(const char *error, const std::string &text) {
  throw BusError(error, text);
}

[[noreturn]] void refuseMember(const BusMessage &call) {
  refuse(unknownMethod, "Nothing here answers to " + std::string(call.member()) + ".");
}

void requireSignature(const BusMessage &call, std::string_view signature) {
  if (call.signature() != signature)
    refuse(invalidArguments, "The arguments of " + std::string(call.member()) + " cannot be read.");
}

// The next part of the path to the object, empty when the path does not lead
// there.
std::string_view childOnTheWay(std::string_view path, std::string_view object) {
  std::string_view parent = path == "/" ? "" : path;
  if (object.size() <= parent.size() + 1 || !object.starts_with(parent) ||
      object[parent.size()] != '/')
    return {};
  std::string_view rest = object.substr(parent.size() + 1);
  return rest.substr(0, rest.find('/'));
}

std::string machineIdentifier() {
  sd_id128_t identifier;
  char text[SD_ID128_STRING_MAX];
  if (sd_id128_get_machine(&identifier) < 0)
    refuse(failed, "The machine has no identifier.");
  return sd_id128_to_string(identifier, text);
}

BusMessage answerOfPeer(const BusMessage &call) {
  BusMessage reply = call.makeReply();
  if (call.member() == "GetMachineId") {
    requireSignature(call, "");
    reply.write(machineIdentifier());
  } else if (call.member() == "Ping") {
    requireSignature(call, "");
  } else {
    refuseMember(call);
  }
  return reply;
}

} // namespace

ServiceCalls::ServiceCalls(Served served, BusOutbox &outbox, ServiceClients &clients,
                           ServiceReplies &replies, ServiceControl &control)
    : served_(std::move(served)),
      description_(busDescription(served_.exported.get(), served_.remote.get(),
                                  ServiceControl::description())),
      outbox_(outbox), clients_(clients), replies_(replies), control_(control) {}

// Any failure becomes the bus's own error.
void ServiceCalls::received(BusMessage &call) {
  BusMessage answer;
  try {
    answer = answerTo(call);
  } catch (const BusError &error) {
    if (call.expectsReply() && outbox_.takesShort(call.sender()))
      answer = call.makeFailure(error.name(), error.what());
  } catch (const std::exception &exception) {
    if (call.expectsReply())
      answer = call.makeFailure(failed, "The request could not be delivered.");
    Log("%@ could not be delivered: %@", call.member(), exception.what());
  }
  if (answer && call.expectsReply())
    outbox_.sendShort(std::move(answer));
}

// Empty when the answer comes later.
BusMessage ServiceCalls::answerTo(BusMessage &call) {
  std::string_view interface = call.interface();
  if (interface == peerInterface) // concerns the process rather than an object
    return answerOfPeer(call);
  if (interface == introspectableInterface)
    return describe(call);
  if (call.path() != served_.path)
    refuse(unknownObject, "There is no such object here.");
  if (interface == propertiesInterface)
    return answerAboutProperties(call);
  if (interface == kw::kControlInterface) {
    const char *signature = ServiceControl::signatureOf(call.member());
    if (!signature)
      refuseMember(call);
    requireSignature(call, signature);
    return control_.handle(call);
  }
  if (!served_.exported || interface != served_.exported->name)
    refuseMember(call);
  deliver(call);
  return BusMessage();
}

BusMessage ServiceCalls::describe(const BusMessage &call) const {
  std::string_view child = childOnTheWay(call.path(), served_.path);
  if (call.path() != served_.path && child.empty())
    refuse(unknownObject, "There is no such object here.");
  if (call.member() != "Introspect")
    refuseMember(call);
  requireSignature(call, "");
  BusMessage reply = call.makeReply();
  reply.write(child.empty() ? description_ : busDescriptionOfParent(child));
  return reply;
}

bool ServiceCalls::servesInterface(std::string_view name) const {
  for (const auto &interface : {served_.exported, served_.remote})
    if (interface && interface->name == name)
      return true;
  return name == kw::kControlInterface || name == peerInterface ||
         name == introspectableInterface || name == propertiesInterface;
}

// The object has no properties.
BusMessage ServiceCalls::answerAboutProperties(BusMessage &call) const {
  bool isAll = call.member() == "GetAll", isSet = call.member() == "Set";
  if (!isAll && !isSet && call.member() != "Get")
    refuseMember(call);
  requireSignature(call, isAll ? "s" : isSet ? "ssv" : "ss");
  if (!servesInterface(call.readText()))
    refuse(unknownInterface, "There is no such interface here.");
  if (!isAll)
    refuse(isSet ? propertyReadOnly : unknownProperty, "There is no such property here.");
  BusMessage reply = call.makeReply();
  reply.open('a', "{sv}");
  reply.close();
  return reply;
}

void ServiceCalls::deliver(BusMessage &call) {
  ServiceClient &client = clients_.clientOf(call.sender());
  if (!client.isAccepted)
    refuse(accessDenied, "Your connection was refused.");
  std::string member(call.member());
  const XPCMethod *method = client.connection->methodWithMember(member);
  if (!method)
    refuseMember(call);
  requireSignature(call, busSignature(method->arguments));
  if (!method->invoker)
    refuse(notSupported, member + " is not supported here.");
  XPCValues arguments = readValues(call, method->arguments);
  if (memoryOf(arguments) > kw::kMostArgumentBytes)
    refuse(limitsExceeded, "The arguments of " + member + " are too large.");
  ServiceReplies::Expected expected = replies_.expect(*method, call);
  try {
    if (client.connection->deliver(*method, std::move(arguments), std::move(expected.reply),
                                   std::move(expected.request)))
      return;
  } catch (...) {
    replies_.forget(call.sender(), expected.number);
    throw;
  }
  replies_.forget(call.sender(), expected.number);
  refuse(limitsExceeded, "Too many of your requests are waiting.");
}

} // namespace NS
