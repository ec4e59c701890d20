// The statistics of dbus-daemon, which answers about one connection, and of
// dbus-broker, which answers about all.
#include "Service/Linux/BusStatistics.h"

#include "Foundation/Base/Log.h"

#include <cstdint>
#include <map>
#include <utility>

namespace NS {
namespace {

constexpr const char *statisticsInterface = "org.freedesktop.DBus.Debug.Stats";
constexpr const char *gone = "org.freedesktop.DBus.Error.NameHasNoOwner";
constexpr std::string_view bytesKey = "OutgoingBytes";
constexpr std::string_view peersKey = "org.bus1.DBus.Debug.Stats.PeerAccounting";
constexpr const char *peersSignature = "a(sa{sv}a{su})";

// Tells whether the bus may answer another time. If the agent took it for a bus
// without statistics, it would send everything, and a client could silence the
// agent.
bool isPassing(std::string_view error) {
  return error == "org.freedesktop.DBus.Error.NoReply" ||
         error == "org.freedesktop.DBus.Error.Timeout" ||
         error == "org.freedesktop.DBus.Error.TimedOut" ||
         error == "org.freedesktop.DBus.Error.LimitsExceeded" ||
         error == "org.freedesktop.DBus.Error.NoMemory";
}

// Enters the value of the key in an answer: false when it has none.
bool enterValue(BusMessage &answer, std::string_view key, const char *contents) {
  if (answer.kind() != BusMessage::Kind::Reply || answer.signature() != "a{sv}")
    return false;
  answer.enter('a', "{sv}");
  while (answer.enter('e', "sv")) {
    if (answer.readText() == key && answer.peek().contents == contents)
      return answer.enter('v', contents);
    answer.skip("v");
    answer.leave();
  }
  return false;
}

// By unique name.
using Figures = std::map<std::string, std::size_t, std::less<>>;

Figures figuresOfPeers(BusMessage &answer) {
  Figures figures;
  answer.enter('a', "(sa{sv}a{su})");
  while (answer.enter('r', "sa{sv}a{su}")) {
    std::string_view name = answer.readText();
    answer.skip("a{sv}");
    answer.enter('a', "{su}");
    while (answer.enter('e', "su")) {
      bool isIt = answer.readText() == bytesKey;
      std::uint32_t figure = answer.readUInt32();
      if (isIt)
        figures.emplace(name, figure);
      answer.leave();
    }
    answer.leave();
    answer.leave();
  }
  return figures;
}

} // namespace

BusStatistics::BusStatistics(BusThread &thread, Receiver receiver)
    : thread_(thread), receiver_(std::move(receiver)) {}

void BusStatistics::ask(const std::vector<std::string> &clients) {
  if (way_ == Way::AllClients)
    return askAboutAll(clients);
  for (const std::string &client : clients)
    askAbout(client);
}

BusMessage BusStatistics::question(const char *member) {
  return thread_.bus().makeCall(BusConnection::busName, BusConnection::busPath, statisticsInterface,
                                member);
}

void BusStatistics::askAbout(const std::string &client) {
  BusMessage call = question("GetConnectionStats");
  call.write(client);
  thread_.ask(std::move(call), [this, client](BusMessage &answer) { answered(client, answer); });
}

void BusStatistics::askAboutAll(std::vector<std::string> clients) {
  thread_.ask(question("GetStats"), [this, clients = std::move(clients)](BusMessage &answer) {
    answeredAboutAll(clients, answer);
  });
  isAskingAboutAll_ = true;
}

void BusStatistics::answered(const std::string &client, BusMessage &answer) {
  try {
    if (enterValue(answer, bytesKey, "u"))
      return receiver_(client, Answer::Bytes, answer.readUInt32());
    if (answer.errorName() == gone)
      return receiver_(client, Answer::Gone, 0);
    if (way_ == Way::EachClient && !isPassing(answer.errorName()))
      tryNextWay();
  } catch (const std::bad_alloc &) { // the next question may succeed
  }
  receiver_(client, Answer::None, 0);
}

void BusStatistics::answeredAboutAll(const std::vector<std::string> &clients, BusMessage &answer) {
  bool isAnswered = false;
  Figures figures;
  try {
    isAnswered = enterValue(answer, peersKey, peersSignature);
    if (isAnswered)
      figures = figuresOfPeers(answer);
    else if (way_ == Way::AllClients && !isPassing(answer.errorName()))
      tryNextWay();
  } catch (const std::bad_alloc &) {
    isAnswered = false;
  }
  for (const std::string &client : clients) {
    auto found = figures.find(client);
    if (!isAnswered)
      receiver_(client, Answer::None, 0);
    else if (found == figures.end())
      receiver_(client, Answer::Gone, 0);
    else
      receiver_(client, Answer::Bytes, found->second);
  }
  // Not earlier: messages that the receiver sends meanwhile are in none of
  // these figures.
  isAskingAboutAll_ = false;
}

void BusStatistics::tryNextWay() {
  way_ = way_ == Way::EachClient ? Way::AllClients : Way::None;
  if (way_ == Way::None)
    Log("The bus tells nothing of what its clients leave unread.");
}

} // namespace NS
