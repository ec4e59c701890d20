// Asks the bus what its clients have left unread, by the statistics that it
// keeps for root.
#include "Foundation/Linux/BusOutbox.h"

#include "Foundation/Log.h"

#include <chrono>
#include <cstdint>
#include <sdbus-c++/sdbus-c++.h>
#include <utility>

namespace NS {
namespace {

constexpr const char *busName = "org.freedesktop.DBus";
constexpr const char *busPath = "/org/freedesktop/DBus";
constexpr const char *statisticsInterface = "org.freedesktop.DBus.Debug.Stats";
constexpr const char *gone = "org.freedesktop.DBus.Error.NameHasNoOwner";

// Whether the bus may answer another time. On a busy machine an answer can come
// later than the bus library waits for one; a bus that then counted as one
// without statistics would be sent everything, and silence the agent.
bool isPassing(const std::string &error) {
  return error == "org.freedesktop.DBus.Error.NoReply" ||
         error == "org.freedesktop.DBus.Error.Timeout" ||
         error == "org.freedesktop.DBus.Error.TimedOut" ||
         error == "org.freedesktop.DBus.Error.LimitsExceeded" ||
         error == "org.freedesktop.DBus.Error.NoMemory";
}

// A client that reads is asked about again after so long.
constexpr std::chrono::milliseconds pause{20};

// What may wait for one client beyond which droppable messages are dropped.
constexpr std::size_t droppingLimit = 256;

} // namespace

BusOutbox::BusOutbox(BusThread &connection, UnreadLimits limits, Listener listener)
    : connection_(connection), listener_(std::move(listener)), unread_(limits),
      statistics_(sdbus::createProxy(connection.bus(), busName, busPath)),
      alive_(std::make_shared<const bool>(true)) {}

BusOutbox::~BusOutbox() = default;

void BusOutbox::send(const std::string &client, std::size_t bytes, Send send) {
  if (!waiting_.contains(client) && canGo(client, bytes)) {
    unread_.sent(client, bytes);
    send();
    return;
  }
  auto [queue, isFirst] = waiting_.try_emplace(client);
  queue->second.push_back({std::move(send), bytes});
  if (isFirst) {
    listener_(client, true);
    measure(client);
    measureAll();
  }
}

void BusOutbox::sendOrDrop(const std::string &client, std::size_t bytes, Send message) {
  auto found = waiting_.find(client);
  if (found == waiting_.end() || found->second.size() < droppingLimit)
    send(client, bytes, std::move(message));
}

bool BusOutbox::admits(const std::string &client, std::size_t bytes) {
  return count(unread_.hasRoom(client, bytes), client, bytes);
}

bool BusOutbox::admitsRefusal(const std::string &client, std::size_t bytes) {
  return count(unread_.hasRoomForRefusal(client, bytes), client, bytes);
}

bool BusOutbox::count(bool hasRoom, const std::string &client, std::size_t bytes) {
  if (hasRoom)
    unread_.sent(client, bytes);
  else
    measure(client);
  return hasRoom || !isMeasurable_;
}

void BusOutbox::forget(const std::string &client) {
  unread_.forget(client);
  if (waiting_.erase(client) > 0)
    listener_(client, false);
  sendWhatFits();
}

bool BusOutbox::canGo(const std::string &client, std::size_t bytes) const {
  return !isMeasurable_ || unread_.hasRoom(client, bytes);
}

// Only for clients that exist; the answer to others is an error.
void BusOutbox::measure(const std::string &client) {
  if (!isMeasurable_ || !measuring_.insert(client).second)
    return;
  sdbus::MethodCall call = statistics_->createMethodCall(statisticsInterface, "GetConnectionStats");
  call << client;
  statistics_->callMethod(call,
                          [this, client](sdbus::MethodReply &reply, const sdbus::Error *error) {
                            measuring_.erase(client);
                            if (error && error->getName() == gone)
                              forget(client);
                            else if (error && isPassing(error->getName()))
                              sendWhatFits();
                            else
                              received(client, reply, error != nullptr);
                          });
}

void BusOutbox::measureAll() {
  for (const std::string &client : unread_.clientsWithMoreThanGuaranteed())
    measure(client);
}

void BusOutbox::received(const std::string &client, sdbus::MethodReply &reply, bool failed) {
  std::map<std::string, sdbus::Variant> figures;
  if (!failed)
    reply >> figures;
  auto found = figures.find("OutgoingBytes");
  if (found == figures.end() || found->second.peekValueType() != "u") {
    // Such a bus has to look after its senders by itself.
    Log("The bus tells nothing of what its clients leave unread.");
    isMeasurable_ = false;
  } else {
    unread_.measured(client, found->second.get<std::uint32_t>());
  }
  sendWhatFits();
}

void BusOutbox::sendWhatFits() {
  for (auto next = waiting_.begin(); next != waiting_.end();) {
    auto queue = next++;
    const std::string client = queue->first;
    while (!queue->second.empty() && canGo(client, queue->second.front().bytes)) {
      Waiting message = std::move(queue->second.front());
      queue->second.pop_front();
      unread_.sent(client, message.bytes);
      message.send();
    }
    if (queue->second.empty()) {
      waiting_.erase(queue);
      listener_(client, false);
    }
  }
  if (waiting_.empty() || isMeasuringAgain_)
    return;
  isMeasuringAgain_ = true;
  connection_.callAfter(pause, [this, alive = std::weak_ptr(alive_)] {
    if (alive.expired())
      return;
    isMeasuringAgain_ = false;
    for (const auto &[client, messages] : waiting_)
      measure(client);
    measureAll();
  });
}

} // namespace NS
