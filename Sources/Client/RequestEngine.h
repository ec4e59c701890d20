// Carries the requests of one client to the agent over connections that come
// and go: one thread that sends, waits, counts the time and calls back.
#pragma once

#include "Client/AgentConnection.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace kw {

class RequestEngine;

// What the engine knows of a request. The engine ends each exactly once, on
// its own thread.
class PendingRequest {
public:
  using Clock = AgentConnection::Clock;

  PendingRequest(AgentMessage message, std::optional<Clock::time_point> deadline)
      : message_(std::move(message)), deadline_(deadline) {}
  virtual ~PendingRequest() = default;

  virtual void succeed(NS::XPCValues values) = 0;
  virtual void fail(const ClientError &error) = 0;
  virtual void progress(const std::string & /*chunk*/) {}

private:
  friend class RequestEngine;

  const AgentMessage message_;
  const std::optional<Clock::time_point> deadline_;
  AgentConnection::Number number_ = 0; // the engine's thread's; 0 before it saw it
};

// Thread-safe. Held by the client and by the engine's own thread.
class RequestEngine final : private AgentConnection::Receiver,
                            public std::enable_shared_from_this<RequestEngine> {
public:
  // Throws ClientError.
  using Connector = std::function<std::unique_ptr<AgentConnection>()>;

  // The first connection may be null; the connector makes all others.
  RequestEngine(Connector connector, std::unique_ptr<AgentConnection> first);
  ~RequestEngine() override;
  RequestEngine(const RequestEngine &) = delete;
  RequestEngine &operator=(const RequestEngine &) = delete;

  // Starts the thread.
  void run();
  void start(std::shared_ptr<PendingRequest> request);
  void cancel(std::shared_ptr<PendingRequest> request);
  // Ends all requests and the thread, and waits for it unless it is the
  // caller's.
  void stop();
  bool isCalledOnOwnThread() const;

private:
  using Number = AgentConnection::Number;
  using Clock = AgentConnection::Clock;

  struct Entry {
    std::shared_ptr<PendingRequest> request; // null: no longer waited for
    std::size_t bytes = 0;                   // of its arguments
    bool hasProgress = false;
    bool isSent = false;
    bool wasTried = false; // and lost its connection before it was sent
  };

  void received(Number number, NS::XPCValues values) override;
  void failed(Number number, const ClientError &error) override;
  void progressed(const std::string &chunk) override;

  // With the mutex held.
  void wakeLocked();

  // All of these on the engine's thread.
  void loop();
  bool takeWork();
  void add(std::shared_ptr<PendingRequest> request);
  void giveUp(Number number, ClientError::Kind kind, const char *reason);
  void sendWhatMay();
  bool sendNext();
  bool hasConnection();
  void refuseWaiting(const ClientError &error);
  void loseConnection(const ClientError &error);
  void dropConnection();
  void endSent(const ClientError &error);
  std::shared_ptr<PendingRequest> remove(Number number);
  void expire();
  std::optional<Clock::time_point> nextDeadline() const;
  void waitForWork();
  void endAll();

  const Connector connector_;
  std::thread thread_;
  std::atomic<std::thread::id> threadID_{};

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::shared_ptr<PendingRequest>> started_;
  std::vector<std::shared_ptr<PendingRequest>> cancelled_;
  bool stopping_ = false;
  bool mayWait_ = false; // the thread waits or is about to
  // Used on the engine's thread alone, which changes it under the mutex, since
  // others wake it.
  std::unique_ptr<AgentConnection> connection_;

  // The engine's thread's own.
  std::map<Number, Entry> entries_;
  std::deque<Number> waiting_; // to be sent; those without an entry are skipped
  std::set<std::pair<Clock::time_point, Number>> deadlines_;
  std::size_t sent_ = 0; // without a reply so far
  std::size_t sentBytes_ = 0;
  Number lastNumber_ = 0;
};

} // namespace kw
