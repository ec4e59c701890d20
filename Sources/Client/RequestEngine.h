// Carries the requests of one client to the agent over a sequence of
// connections. One thread sends, waits, watches the time limits and calls back.
//
// When memory runs out, the request at hand fails and the others go on: the
// thread allocates everything that it needs to end a request before it takes
// the request.
#pragma once

#include "Client/AgentConnection.h"
#include "Client/CallbackGuard.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>

namespace kw {

class RequestEngine;

// The engine's view of a request. The engine ends each exactly once, on its own
// thread.
class PendingRequest {
public:
  using Clock = AgentConnection::Clock;

  PendingRequest(AgentMessage message, std::optional<Clock::time_point> deadline)
      : message_(std::move(message)), deadline_(deadline) {}
  virtual ~PendingRequest() = default;

  virtual void succeed(NS::XPCValues values) noexcept = 0;
  virtual void fail(const ClientError &error) noexcept = 0;
  virtual void progress(const std::string & /*chunk*/) noexcept {}
  virtual void advance(const RequestProgress & /*progress*/) noexcept {}

private:
  friend class RequestEngine;

  const AgentMessage message_;
  const std::optional<Clock::time_point> deadline_;
  AgentConnection::Number number_ = 0; // never changes after the start
  std::atomic<bool> isGivenUp_ = false;
  std::shared_ptr<PendingRequest> nextGivenUp_; // guarded by the engine's mutex
};

// Thread-safe. The client and the engine's own thread share it.
class RequestEngine final : private AgentConnection::Receiver,
                            public std::enable_shared_from_this<RequestEngine> {
public:
  // Throws ClientError.
  using Connector = std::function<std::unique_ptr<AgentConnection>()>;

  // The first connection may be null; the connector makes all others. The bus may
  // accept a connection later.
  RequestEngine(Connector connector, std::unique_ptr<AgentConnection> first,
                CallbackGuard::Handler handler = nullptr);
  ~RequestEngine() override;
  RequestEngine(const RequestEngine &) = delete;
  RequestEngine &operator=(const RequestEngine &) = delete;

  // Starts the thread, which takes no signals. Throws ClientError.
  void run();
  // Throws ClientError in a forked child, which has no such thread.
  void start(const std::shared_ptr<PendingRequest> &request);
  // A request that was not sent yet never will be.
  void cancel(const std::shared_ptr<PendingRequest> &request) noexcept;
  // Cancels all requests that were started before.
  void cancelAll() noexcept;
  // Ends all requests and the thread, and waits for the thread unless it is the
  // caller.
  void stop() noexcept;
  bool isCalledOnOwnThread() const;
  // Tells whether this process, and no parent of it, made the engine.
  bool isOfThisProcess() const;
  const std::shared_ptr<const CallbackGuard> &guard() const { return guard_; }

private:
  using Number = AgentConnection::Number;
  using Clock = AgentConnection::Clock;

  struct Entry {
    explicit Entry(std::shared_ptr<PendingRequest> which);

    std::shared_ptr<PendingRequest> request; // null: the client no longer waits for it
    std::size_t bytes = 0;                   // of its arguments
    bool hasProgress = false;
    bool wasTried = false;    // it lost its connection before it was sent
    bool isCancelled = false; // by the caller, and the agent knows
    bool isStopping = false;  // as the agent has confirmed
  };
  using Entries = std::map<Number, Entry>;
  using Deadlines = std::set<std::pair<Clock::time_point, Number>>;

  // The results of requests without an answer, made before memory can run out.
  struct Endings {
    const ClientError cancelled, cancelledLate, expired, expiredLate, abandoned, abandonedLate,
        noMemory, interrupted;
    Endings();
  };

  void received(Number number, NS::XPCValues values) override;
  void failed(Number number, const ClientError &error) override;
  void progressed(const std::string &chunk) override;
  void advanced(Number number, const RequestProgress &progress) override;
  void isBeingCancelled(Number number) override;
  void couldNotCancel(Number number) override;

  // The caller holds the mutex.
  void wakeLocked();

  // The engine's thread alone calls these.
  void loop() noexcept;
  bool takeWork();
  void cancelThose(std::shared_ptr<PendingRequest> first);
  void cancelUpTo(Number last);
  void cancelOne(Number number);
  bool isGivenUp(Number number, const Entry &entry) const;
  bool isSent(Number number) const { return number <= lastSent_; }
  void forget(Number number, const ClientError &unsent, const ClientError &sent);
  void sendWhatMay();
  bool sendNext(Entries::iterator next);
  void failedToSend(Number number, const ClientError &error);
  // Opens a connection unless there is one. On failure all waiting requests have
  // failed, and the result is false. The bus accepts the connection later.
  bool connect();
  bool isAccepted();
  void endWaiting(const ClientError &error);
  void endSent(const ClientError &error);
  void loseConnection(const ClientError &error);
  bool dropConnection();
  std::shared_ptr<PendingRequest> remove(Number number);
  void expire();
  std::optional<Clock::time_point> nextDeadline() const;
  void waitForWork();
  void waitForArrivals(std::optional<Clock::time_point> until);
  void endAll();

  const Connector connector_;
  const std::shared_ptr<const CallbackGuard> guard_;
  const Endings endings_;
  const long process_; // that made the engine
  std::thread thread_;
  std::atomic<std::thread::id> threadID_{};

  std::mutex mutex_;
  std::condition_variable changed_;
  Number lastNumber_ = 0;
  Entries started_;
  Deadlines startedDeadlines_;
  std::shared_ptr<PendingRequest> givenUp_; // the newest; each knows the one before it
  std::atomic<Number> givenUpTo_ = 0;       // the client gave up these and all before them
  bool stopping_ = false;
  bool mayWait_ = false; // the thread waits or is about to
  // Only the engine's thread uses it. It changes it under the mutex, since
  // other threads wake it.
  std::unique_ptr<AgentConnection> connection_;

  // Only the engine's thread uses these.
  bool isAccepted_ = false; // the connection, by the bus
  Entries entries_;         // sent ones first
  Deadlines deadlines_;
  Number lastSent_ = 0;
  Number cancelledUpTo_ = 0;
  std::size_t sent_ = 0; // without a reply so far
  std::size_t sentBytes_ = 0;
};

} // namespace kw
