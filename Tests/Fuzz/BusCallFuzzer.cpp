// Sends the listener a call with any signature and any body. It must answer the
// call at most once, and must answer the next call after any other.
//
// The first byte chooses the member, the second tells whether a reply is
// expected, whether the signature is the member's own, and whether the call goes
// to another interface than the listener's own; a signature that is not the
// member's follows with its length. The rest is the body.
#include "Service/XPCListener.h"
#include "Support/FakeBus.h"
#include "Support/FuzzInput.h"

#include <array>

namespace {

using NS::XPCKind;

constexpr const char *interfaceName = "org.example.Fuzz";
constexpr const char *path = "/org/example/Fuzz";

struct Served {
  const char *member;
  std::vector<NS::XPCParameter> parameters;
  const char *signature;
};

const std::array<Served, 5> &served() {
  static const std::array<Served, 5> members = {
      Served{"Text", {{"text", XPCKind::String}}, "s"},
      Served{"Texts", {{"texts", XPCKind::StringArray}}, "as"},
      Served{"Both", {{"text", XPCKind::String}, {"texts", XPCKind::StringArray}}, "sas"},
      Served{"Numbers",
             {{"flag", XPCKind::Flag}, {"small", XPCKind::Int32}, {"large", XPCKind::Int64}},
             "bix"},
      Served{"Nothing", {}, ""}};
  return members;
}

// The members of every object besides the listener's.
struct Other {
  const char *interface;
  const char *member;
  const char *signature;
};
constexpr std::array<Other, 7> others = {
    Other{"org.keepwell.KWRequestControl", "Cancel", "u"},
    Other{"org.keepwell.KWRequestControl", "EndRequestsOnLeaving", "b"},
    Other{"org.keepwell.KWRequestControl", "SubscribeToProgress", "b"},
    Other{"org.freedesktop.DBus.Properties", "GetAll", "s"},
    Other{"org.freedesktop.DBus.Properties", "Set", "ssv"},
    Other{"org.freedesktop.DBus.Introspectable", "Introspect", ""},
    Other{"org.freedesktop.DBus.Peer", "Ping", ""}};

Other chosen(std::uint8_t number, bool isOther) {
  if (isOther)
    return others[number % others.size()];
  const Served &member = served()[number % served().size()];
  return {interfaceName, member.member, member.signature};
}

// The listener sends the arguments back, so they must be values that a message
// can hold.
std::shared_ptr<const NS::XPCInterface> interface() {
  auto result = std::make_shared<NS::XPCInterface>();
  result->name = interfaceName;
  for (const Served &each : served())
    result->methods.push_back({each.member, each.member, each.parameters, each.parameters, false,
                               [](NS::XPCObject &, const NS::XPCValues &arguments,
                                  const NS::XPCReply &reply) { reply.send(arguments); }});
  return result;
}

class Delegate final : public NS::XPCListenerDelegate {
  bool
  listenerShouldAcceptNewConnection(NS::XPCListener &,
                                    const std::shared_ptr<NS::XPCConnection> &connection) override {
    connection->setExportedInterface(interface());
    connection->setExportedObject(std::make_shared<NS::XPCObject>());
    connection->resume();
    return true;
  }
};

// Never destroyed: the listener's thread runs until the process ends.
kwtest::FakeBus &listenedBus() {
  static auto *bus = [] {
    auto *made = &kwtest::FakeBus::start();
    static auto delegate = std::make_shared<Delegate>();
    static auto *listener =
        NS::XPCListener::listenerWithMachServiceName("org.example.Fuzz", made->address()).release();
    listener->setDelegate(delegate);
    listener->announce(interface(), nullptr);
    listener->resume();
    return made;
  }();
  return *bus;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view text = kwtest::fuzzText(data, size);
  if (text.size() < 2)
    return 0;
  auto byte = [&](std::size_t index) { return static_cast<std::uint8_t>(text[index]); };
  Other member = chosen(byte(0), (byte(1) & 4) != 0);
  bool expectsReply = (byte(1) & 1) == 0;
  bool isOwnSignature = (byte(1) & 2) == 0;
  text.remove_prefix(2);
  std::string_view signature = member.signature;
  if (!isOwnSignature && !text.empty()) {
    std::size_t length = byte(0);
    text.remove_prefix(1);
    signature = text.substr(0, length);
    text.remove_prefix(signature.size());
  }
  kwtest::FakeBus &bus = listenedBus();
  auto serial = bus.call(path, member.interface, member.member, signature, text,
                         expectsReply ? 0 : kwtest::FakeBus::noReplyExpected);
  auto next = bus.call(path, interfaceName, "Nothing", "", "", 0);
  std::size_t answers = bus.answersWhenAnswered(serial, next).size();
  kwtest::require(answers <= (expectsReply ? 1U : 0U), "a call is answered once at most");
  return 0;
}
