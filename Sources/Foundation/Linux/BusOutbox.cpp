// Asks the bus what its clients have left unread, by the statistics that it
// keeps for root.
#include "Foundation/Linux/BusOutbox.h"

#include "Foundation/Log.h"

#include <cstdint>
#include <new>
#include <optional>
#include <utility>

namespace NS {
namespace {

constexpr const char *statisticsInterface = "org.freedesktop.DBus.Debug.Stats";
constexpr const char *gone = "org.freedesktop.DBus.Error.NameHasNoOwner";

// Whether the bus may answer another time. A bus that counted as one without
// statistics would be sent everything, and silence the agent.
bool isPassing(std::string_view error) {
  return error == "org.freedesktop.DBus.Error.NoReply" ||
         error == "org.freedesktop.DBus.Error.Timeout" ||
         error == "org.freedesktop.DBus.Error.TimedOut" ||
         error == "org.freedesktop.DBus.Error.LimitsExceeded" ||
         error == "org.freedesktop.DBus.Error.NoMemory";
}

// A client that reads is asked about again after so long.
constexpr std::chrono::milliseconds pause{20};

// What may wait for one client beyond which droppable messages are dropped,
// and short answers.
constexpr std::size_t droppingLimit = 256;
constexpr std::size_t shortLimit = 16384;
constexpr std::size_t shortBytes = std::size_t{8} << 20;

// A client that reads does not wait longer for what others leave no room for.
// While the bus is slow to answer, nobody knows whether there is room.
constexpr std::chrono::seconds longestWait{20};
constexpr int fewestLooks = 100;

// The figure in the answer of the bus, nothing when there is none.
std::optional<std::uint32_t> outgoingBytes(BusMessage &answer) try {
  if (answer.kind() != BusMessage::Kind::Reply || answer.signature() != "a{sv}")
    return std::nullopt;
  answer.enter('a', "{sv}");
  while (answer.enter('e', "sv")) {
    if (answer.readText() == "OutgoingBytes" && answer.peek().contents == "u") {
      answer.enter('v', "u");
      return answer.readUInt32();
    }
    answer.skip("v");
    answer.leave();
  }
  return std::nullopt;
} catch (const std::bad_alloc &) {
  return std::nullopt;
}

} // namespace

BusOutbox::BusOutbox(BusThread &thread, UnreadLimits limits, Listener listener,
                     TrialMaker makeTrial)
    : thread_(thread), limits_(limits), listener_(std::move(listener)),
      makeTrial_(std::move(makeTrial)), unread_(limits) {}

void BusOutbox::send(BusMessage message, BusMessage small) {
  post(message, small, Kind::Whole);
}

void BusOutbox::sendShort(BusMessage message) {
  auto found = waiting_.find(message.destination());
  if (found == waiting_.end() || hasRoomForShort(found->second, message.size())) {
    BusMessage none;
    post(message, none, Kind::Short);
  }
}

bool BusOutbox::takesShort(std::string_view client) const {
  auto found = waiting_.find(client);
  return found == waiting_.end() || hasRoomForShort(found->second, 0);
}

// Few are large, and those are all alike.
bool BusOutbox::hasRoomForShort(const Queue &queue, std::size_t bytes) {
  return queue.size() < shortLimit && queue.size() * bytes < shortBytes;
}

void BusOutbox::sendOrDrop(BusMessage message) {
  auto found = waiting_.find(message.destination());
  if (found == waiting_.end() || found->second.size() < droppingLimit) {
    BusMessage none;
    post(message, none, Kind::Whole);
  }
}

// Without memory to count and keep it, it goes uncounted rather than never.
void BusOutbox::post(BusMessage &message, BusMessage &small, Kind kind) {
  Waiting made{std::move(message), std::move(small), kind, BusConnection::Clock::now()};
  try {
    const std::string client(made.message.destination());
    auto found = waiting_.find(client);
    if ((found == waiting_.end() || kind == Kind::Short) && roomFor(client, made) == Room::Enough)
      return dispatch(client, made.message);
    const bool isFirst = found == waiting_.end();
    Queue &queue = waiting_[client];
    queue.push_back(std::move(made));
    if (!isFirst)
      return;
    listener_(client, true);
    ask(client);
    askWhereWorth();
    askAgainLater();
  } catch (const std::bad_alloc &) {
    if (made.message)
      thread_.bus().send(made.message);
  }
}

BusOutbox::Room BusOutbox::roomFor(const std::string &client, const Waiting &waiting) const {
  // A bus without statistics has to look after its senders by itself.
  if (!isMeasurable_)
    return Room::Enough;
  return unread_.roomFor(client, waiting.message.size(), waiting.kind);
}

void BusOutbox::dispatch(const std::string &client, BusMessage &message) {
  unread_.sent(client, message.size());
  try {
    thread_.bus().send(message);
  } catch (const BusError &error) {
    Log("A message to %@ could not be sent: %@", client, error.what());
  }
  message = BusMessage();
  if (unread_.isWorthAsking(client))
    askWhereWorth();
}

void BusOutbox::forget(std::string_view client) {
  unread_.forget(client);
  if (auto found = waiting_.find(client); found != waiting_.end())
    waiting_.erase(found);
  sendWhatFits();
}

// Only about clients that exist; the answer about others is an error.
void BusOutbox::ask(const std::string &client) {
  if (!isMeasurable_ || unread_.isAsked(client))
    return;
  BusMessage call = thread_.bus().makeCall(BusConnection::busName, BusConnection::busPath,
                                           statisticsInterface, "GetConnectionStats");
  call.write(client);
  thread_.ask(std::move(call), [this, client](BusMessage &answer) { answered(client, answer); });
  unread_.asked(client);
}

void BusOutbox::askWhereWorth() {
  if (isMeasurable_)
    for (const std::string &client : unread_.worthAsking())
      ask(client);
}

void BusOutbox::answered(const std::string &client, BusMessage &answer) {
  if (const auto bytes = outgoingBytes(answer)) {
    unread_.measured(client, *bytes);
    if (auto found = waiting_.find(client); found != waiting_.end())
      ++found->second.front().looks;
  } else if (answer.errorName() == gone) {
    unread_.forget(client);
    if (auto found = waiting_.find(client); found != waiting_.end())
      waiting_.erase(found);
  } else {
    unread_.notMeasured(client);
    // What has no figure though it is an answer may have one another time.
    if (isMeasurable_ && answer.kind() == BusMessage::Kind::Failure &&
        !isPassing(answer.errorName())) {
      Log("The bus tells nothing of what its clients leave unread.");
      isMeasurable_ = false;
    }
  }
  sendWhatFits();
}

void BusOutbox::sendWhatFits() {
  for (auto next = waiting_.begin(); next != waiting_.end();) {
    auto queue = next++;
    sendWhatFits(queue->first, queue->second);
    if (!queue->second.empty())
      continue;
    const std::string client = queue->first;
    waiting_.erase(queue);
    listener_(client, false);
  }
  askAgainLater();
}

void BusOutbox::sendWhatFits(const std::string &client, Queue &queue) {
  while (!queue.empty()) {
    Waiting &first = queue.front();
    const Room room = roomFor(client, first);
    if (room == Room::Enough)
      dispatch(client, first.message);
    else if (isOverdue(client, first))
      dispatch(client, first.small);
    else if (room == Room::Unknown && unread_.mayTry(client) && !unread_.isAsked(client)) {
      BusMessage trial = makeTrial_(client, limits_.proof);
      dispatch(client, trial);
      return;
    } else
      return;
    queue.pop_front();
  }
}

// A client that leaves its own messages unread waits until it reads them.
bool BusOutbox::isOverdue(const std::string &client, const Waiting &waiting) const {
  return waiting.small && waiting.looks >= fewestLooks && unread_.ofClient(client) == 0 &&
         !unread_.isAsked(client) && BusConnection::Clock::now() - waiting.since > longestWait;
}

void BusOutbox::askAgainLater() {
  if (waiting_.empty() || isAskingAgain_)
    return;
  thread_.callAfter(pause, [this] {
    isAskingAgain_ = false;
    for (const auto &[client, messages] : waiting_)
      ask(client);
    askWhereWorth();
    sendWhatFits();
  });
  isAskingAgain_ = true;
}

} // namespace NS
