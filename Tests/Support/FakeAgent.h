// An agent without a bus: records its requests and gives the answers that the
// test sets, over connections that the test can break.
#pragma once

#include "Client/AgentConnection.h"
#include "Client/ClientMaker.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kwtest {

// Thread-safe. Serves one client at a time, and must outlive it.
class FakeAgent {
public:
  using Answer = std::variant<NS::XPCValues, kw::ClientError>;
  using Handler = std::function<Answer(const kw::AgentMessage &message)>;

  // Without a handler every request gets a reply of the right kinds, with YES
  // and without errors.
  explicit FakeAgent(Handler handler = nullptr) : handler_(std::move(handler)) {}
  // Waits until no client uses it: one that was destroyed in a callback is gone
  // later.
  ~FakeAgent() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return open_ == 0; });
  }
  FakeAgent(const FakeAgent &) = delete;
  FakeAgent &operator=(const FakeAgent &) = delete;

  std::unique_ptr<kw::Client> client(const kw::ClientOptions &options = {}) {
    return kw::ClientMaker::make([this] { return connect(); }, options);
  }

  // Requests are kept without an answer until they are released.
  void hold() {
    std::lock_guard lock(mutex_);
    holding_ = true;
  }
  // The same, from a handler.
  void holdFromNowOn() { holding_ = true; }
  void release() {
    change([this] {
      holding_ = false;
      arrived_.insert(arrived_.end(), refused_.begin(), refused_.end());
      refused_.clear();
      for (auto &[number, message] : std::exchange(held_, {}))
        answer(number, message);
    });
  }
  void sendProgress(const std::string &chunk) {
    change([&] { arrived_.emplace_back(chunk); });
  }
  // From now on it cancels held requests when asked to, unlike an old agent.
  void learnToCancel() {
    std::lock_guard lock(mutex_);
    canCancel_ = true;
  }
  // From now on it refuses to cancel only as it is released.
  void refuseToCancelLater() {
    std::lock_guard lock(mutex_);
    refusesLater_ = true;
  }
  // From now on no memory is left for asking it to cancel.
  void leaveNoMemoryForCancelling() {
    std::lock_guard lock(mutex_);
    hasMemoryToCancel_ = false;
  }
  // Of each request held whose client follows it.
  void sendAdvance(const kw::RequestProgress &progress) {
    change([&] {
      for (const auto &[number, message] : held_)
        if (message.isFollowed)
          arrived_.emplace_back(Advance{number, progress});
    });
  }
  // The same for making a connection.
  void leaveNoMemoryForConnecting(bool none = true) {
    std::lock_guard lock(mutex_);
    hasMemoryToConnect_ = !none;
  }
  // The same for sending the next request.
  void leaveNoMemoryForNextSend() {
    std::lock_guard lock(mutex_);
    hasMemoryToSend_ = false;
  }
  std::size_t cancelsAsked() {
    std::lock_guard lock(mutex_);
    return cancelsAsked_;
  }
  void waitUntilAskedToCancel(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return cancelsAsked_ >= count; });
  }
  // Sends these before the reply to each request that has progress.
  void setChunks(std::vector<std::string> chunks) {
    std::lock_guard lock(mutex_);
    chunks_ = std::move(chunks);
  }
  // Ends the connection and drops the requests that it holds.
  void breakConnection() {
    change([this] {
      broken_ = true;
      held_.clear();
      arrived_.clear();
    });
  }
  // Further connections cannot be made.
  void refuseConnections(bool refuse = true) {
    std::lock_guard lock(mutex_);
    refusing_ = refuse;
  }
  // Further connections are made, but not accepted until they may be.
  void acceptConnections(bool accept = true) {
    change([&] {
      accepting_ = accept;
      woken_ = true;
    });
  }
  // A lack of memory ends the connection.
  void runOutOfMemory() {
    change([this] { hasMemoryToWait_ = false; });
  }
  // The next request cannot be sent and finds the connection ended.
  void failNextSends(int count) {
    std::lock_guard lock(mutex_);
    failingSends_ = count;
  }

  // The same when it is to cancel a request.
  void failCancels() {
    std::lock_guard lock(mutex_);
    failingCancels_ = true;
  }

  // Waits until the client waits for the agent without a limit.
  void waitUntilIdle() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return idle_; });
  }
  void waitUntilSent(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return sent_.size() >= count; });
  }
  std::vector<kw::AgentMessage> sent() {
    std::lock_guard lock(mutex_);
    return sent_;
  }
  // As "Member argument argument".
  std::vector<std::string> requests() {
    std::vector<std::string> lines;
    for (const kw::AgentMessage &message : sent()) {
      lines.push_back(message.member);
      for (const NS::XPCValue &argument : message.arguments)
        lines.back() += describe(argument);
    }
    return lines;
  }
  int connections() {
    std::lock_guard lock(mutex_);
    return connections_;
  }
  std::size_t mostHeld() {
    std::lock_guard lock(mutex_);
    return mostHeld_;
  }
  void forget() {
    std::lock_guard lock(mutex_);
    sent_.clear();
  }
  void setHandler(Handler handler) {
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
  }

  // A reply of the kinds that a message asks for.
  static NS::XPCValues usualReply(const kw::AgentMessage &message) {
    NS::XPCValues values;
    for (NS::XPCKind kind : message.replyKinds)
      values.push_back(usualValue(kind, message));
    return values;
  }

private:
  using Number = kw::AgentConnection::Number;
  struct NotCancelled {
    Number number;
  };
  struct Advance {
    Number number;
    kw::RequestProgress progress;
  };
  using Arrival = std::variant<std::pair<Number, Answer>, std::string, NotCancelled, Advance>;

  class Connection final : public kw::AgentConnection {
  public:
    explicit Connection(FakeAgent &agent) : agent_(agent) {}
    ~Connection() override {
      agent_.change([this] { --agent_.open_; });
    }
    void send(Number number, const kw::AgentMessage &message) override {
      agent_.send(number, message);
    }
    bool isAccepted() override { return agent_.accepts(); }
    void wait(Receiver &receiver, std::optional<Clock::time_point> until) override {
      agent_.wait(receiver, until);
    }
    void cancel(Number number) override { agent_.cancel(number); }
    void wake() override {
      agent_.change([this] { agent_.woken_ = true; });
    }

  private:
    FakeAgent &agent_;
  };

  static std::string describe(const NS::XPCValue &value) {
    if (const auto *text = std::get_if<std::string>(&value))
      return " " + *text;
    std::string all;
    for (const std::string &text : std::get<std::vector<std::string>>(value))
      all += "|" + text;
    return all;
  }

  static NS::XPCValue usualValue(NS::XPCKind kind, const kw::AgentMessage &message) {
    switch (kind) {
    case NS::XPCKind::Flag:
      return message.member != "MoveToTrashItemAtPath"; // the flag says the opposite
    case NS::XPCKind::Int32:
      return std::int32_t{0};
    case NS::XPCKind::Int64:
      return std::int64_t{0};
    case NS::XPCKind::String:
      return message.member == "Echo" ? message.arguments.at(0) : NS::XPCValue(std::string());
    case NS::XPCKind::StringArray:
      return std::vector<std::string>();
    case NS::XPCKind::Error:
      break;
    }
    return std::monostate();
  }

  template <typename Work> void change(Work work) {
    std::lock_guard lock(mutex_);
    work();
    changed_.notify_all(); // still locked: the destructor may be waiting
  }

  std::unique_ptr<kw::AgentConnection> connect() {
    std::lock_guard lock(mutex_);
    if (!hasMemoryToConnect_)
      throw std::bad_alloc();
    if (refusing_)
      throw kw::ClientError(kw::ClientError::Kind::Unreachable, "NoServer", "no bus");
    ++connections_;
    ++open_;
    broken_ = false;
    return std::make_unique<Connection>(*this);
  }

  bool accepts() {
    std::lock_guard lock(mutex_);
    return accepting_;
  }

  void answer(Number number, const kw::AgentMessage &message) {
    if (message.hasProgress)
      arrived_.insert(arrived_.end(), chunks_.begin(), chunks_.end());
    arrived_.emplace_back(
        std::pair(number, handler_ ? handler_(message) : Answer(usualReply(message))));
  }

  void send(Number number, const kw::AgentMessage &message) {
    change([&] {
      if (broken_)
        throw ended_;
      if (failingSends_ > 0) {
        --failingSends_;
        throw ended_;
      }
      if (!std::exchange(hasMemoryToSend_, true))
        throw std::bad_alloc();
      sent_.push_back(message);
      if (!holding_)
        return answer(number, message);
      held_.emplace_back(number, message);
      mostHeld_ = std::max(mostHeld_, held_.size());
    });
  }

  static NS::XPCValues cancelledReply(const kw::AgentMessage &message) {
    NS::XPCValues values = usualReply(message);
    for (NS::XPCValue &value : values)
      if (std::holds_alternative<std::monostate>(value))
        value = NS::Error(NS::CocoaErrorDomain, 3072);
    if (std::holds_alternative<bool>(values.at(0)))
      values[0] = !message.flagWhenDone;
    return values;
  }

  void cancel(Number number) {
    bool hasMemory = true;
    change([&] {
      ++cancelsAsked_;
      if (failingCancels_)
        throw ended_;
      hasMemory = hasMemoryToCancel_;
      if (hasMemory)
        beAskedToCancel(number);
    });
    if (!hasMemory)
      throw std::bad_alloc();
  }
  void beAskedToCancel(Number number) {
    if (!canCancel_) {
      if (refusesLater_)
        refused_.push_back(NotCancelled{number});
      else
        arrived_.emplace_back(NotCancelled{number});
      return;
    }
    auto found = std::find_if(held_.begin(), held_.end(),
                              [&](const auto &held) { return held.first == number; });
    if (found == held_.end())
      return; // its answer is on its way
    arrived_.emplace_back(std::pair(number, Answer(cancelledReply(found->second))));
    held_.erase(found);
  }

  void wait(kw::AgentConnection::Receiver &receiver,
            std::optional<kw::AgentConnection::Clock::time_point> until) {
    std::unique_lock lock(mutex_);
    idle_ = !until;
    changed_.notify_all();
    auto due = [this] { return !arrived_.empty() || woken_ || broken_ || !hasMemoryToWait_; };
    if (until)
      changed_.wait_until(lock, *until, due);
    else
      changed_.wait(lock, due);
    idle_ = woken_ = false;
    if (!std::exchange(hasMemoryToWait_, true))
      throw std::bad_alloc();
    for (Arrival &arrival : std::exchange(arrived_, {})) {
      lock.unlock();
      deliver(receiver, arrival);
      lock.lock();
    }
    if (broken_)
      throw ended_;
  }

  static void deliver(kw::AgentConnection::Receiver &receiver, Arrival &arrival) {
    if (const auto *chunk = std::get_if<std::string>(&arrival))
      return receiver.progressed(*chunk);
    if (const auto *notCancelled = std::get_if<NotCancelled>(&arrival))
      return receiver.couldNotCancel(notCancelled->number);
    if (const auto *advance = std::get_if<Advance>(&arrival))
      return receiver.advanced(advance->number, advance->progress);
    auto &[number, answer] = std::get<std::pair<Number, Answer>>(arrival);
    if (const auto *error = std::get_if<kw::ClientError>(&answer))
      receiver.failed(number, *error);
    else
      receiver.received(number, std::get<NS::XPCValues>(std::move(answer)));
  }

  // Made before memory can run out.
  const kw::ClientError ended_{kw::ClientError::Kind::Unreachable, "Disconnected",
                               "the connection has ended"};
  std::mutex mutex_;
  std::condition_variable changed_;
  Handler handler_;
  std::vector<kw::AgentMessage> sent_;
  std::deque<std::pair<Number, kw::AgentMessage>> held_;
  std::deque<Arrival> arrived_;
  std::vector<std::string> chunks_;
  std::size_t mostHeld_ = 0;
  int connections_ = 0;
  int open_ = 0;
  int failingSends_ = 0;
  bool failingCancels_ = false;
  std::size_t cancelsAsked_ = 0;
  std::vector<NotCancelled> refused_;
  bool refusesLater_ = false;
  bool canCancel_ = false;
  bool hasMemoryToCancel_ = true;
  bool hasMemoryToConnect_ = true;
  bool hasMemoryToSend_ = true;
  bool hasMemoryToWait_ = true;
  bool accepting_ = true;
  bool holding_ = false;
  bool idle_ = false;
  bool refusing_ = false;
  bool broken_ = false;
  bool woken_ = false;
};

} // namespace kwtest
