// Sends messages that have room, and asks the bus for clients of unknown room.
#include "Service/Linux/BusOutbox.h"

#include "Foundation/Base/Log.h"

#include <cstdint>
#include <new>
#include <optional>
#include <utility>

namespace NS {
namespace {

// The interval between questions about a client that reads.
constexpr std::chrono::milliseconds pause{20};

// When so many messages wait for a client, droppable ones are dropped.
constexpr std::size_t droppingLimit = 256;
// When so many messages or bytes wait for it, short answers are dropped too.
constexpr std::size_t shortLimit = 16384;
constexpr std::size_t shortBytes = std::size_t{8} << 20;

// The longest time that the message of a client that reads waits for room that
// other clients take. It waits longer while the bus has given fewer figures than
// this: the room is then not known well enough.
constexpr std::chrono::seconds longestWait{20};
constexpr int fewestLooks = 100;

} // namespace

BusOutbox::BusOutbox(BusThread &thread, Listener listener, TrialMaker makeTrial)
    : thread_(thread), listener_(std::move(listener)), makeTrial_(std::move(makeTrial)),
      unread_(UnreadLimits{}),
      statistics_(thread, [this](const std::string &client, BusStatistics::Answer answer,
                                 std::size_t bytes) { answered(client, answer, bytes); }) {
  thread_.addChore([this] {
    askAgainLater();
    askWhereWorth();
    sendWhatFits();
  });
}

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

// Estimates the bytes that wait as if all these messages were as large as this
// one: few short answers are large, and those are equal descriptions.
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

// Without memory to count and keep the message, it is sent uncounted rather
// than lost.
void BusOutbox::post(BusMessage &message, BusMessage &small, Kind kind) {
  Waiting made{std::move(message), std::move(small), kind, BusConnection::Clock::now()};
  try {
    std::string client(made.message.destination());
    auto found = waiting_.find(client);
    if ((found == waiting_.end() || kind == Kind::Short) && roomFor(client, made) == Room::Enough)
      return dispatch(client, made.message);
    if (!keep(client, made))
      return;
    askAgainLater();
    listener_(client, true);
    askWhereWorth();
  } catch (const std::bad_alloc &) {
    if (made.message)
      thread_.bus().send(made.message);
  }
}

// Keeps the message, and returns whether none waited for its client before.
bool BusOutbox::keep(const std::string &client, Waiting &made) {
  auto [queue, isFirst] = waiting_.try_emplace(client);
  try {
    queue->second.push_back(std::move(made));
  } catch (const std::bad_alloc &) {
    if (isFirst)
      waiting_.erase(queue);
    throw;
  }
  return isFirst;
}

BusOutbox::Room BusOutbox::roomFor(const std::string &client, const Waiting &waiting) const {
  // A bus without statistics has to look after its senders by itself.
  if (!statistics_.areKept())
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

// Also asks about all clients whose messages wait.
void BusOutbox::askWhereWorth() {
  if (!statistics_.canAsk())
    return;
  std::vector<std::string> clients = unread_.worthAsking();
  for (const auto &[client, messages] : waiting_)
    if (!unread_.isAsked(client) && !unread_.isWorthAsking(client))
      clients.push_back(client);
  if (clients.empty())
    return;
  statistics_.ask(clients);
  for (const std::string &client : clients)
    unread_.asked(client);
}

void BusOutbox::answered(const std::string &client, BusStatistics::Answer answer,
                         std::size_t bytes) {
  learnLimits();
  auto found = waiting_.find(client);
  if (answer == BusStatistics::Answer::Bytes) {
    unread_.measured(client, bytes);
    if (found != waiting_.end())
      ++found->second.front().looks;
  } else if (answer == BusStatistics::Answer::Gone) {
    unread_.forget(client);
    if (found != waiting_.end())
      waiting_.erase(found);
  } else {
    unread_.notMeasured(client);
  }
  sendWhatFits();
}

// The first answer shows whether the bus is dbus-broker, which has other limits.
void BusOutbox::learnLimits() {
  if (!hasLimitsOfUsers_ && statistics_.areOfUsers()) {
    unread_.setLimits(UnreadLimits::forAccountsOfUsers());
    hasLimitsOfUsers_ = true;
  }
}

// Goes on a little later where memory ran out.
void BusOutbox::sendWhatFits() noexcept {
  try {
    for (auto next = waiting_.begin(); next != waiting_.end();) {
      auto queue = next++;
      sendWhatFits(queue->first, queue->second);
      if (!queue->second.empty())
        continue;
      auto sent = waiting_.extract(queue);
      listener_(sent.key(), false);
    }
  } catch (const std::exception &) {
  }
  askAgainLater();
}

void BusOutbox::sendWhatFits(const std::string &client, Queue &queue) {
  while (!queue.empty()) {
    Waiting &first = queue.front();
    Room room = roomFor(client, first);
    if (room == Room::Enough)
      dispatch(client, first.message);
    else if (isOverdue(client, first))
      dispatch(client, first.small);
    else if (room == Room::Unknown && unread_.mayTry(client) && !unread_.isAsked(client)) {
      BusMessage trial = makeTrial_(client, unread_.limits().proof);
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

// Needs no memory: without a next time the messages would wait for ever.
void BusOutbox::askAgainLater() noexcept {
  if (!waiting_.empty())
    thread_.doChoresAfter(pause);
}

} // namespace NS
