// The requests of one client: bounded, in order, one at a time, on threads of
// a shared pool.
#pragma once

#include "Foundation/Threads/Internal/WorkerPool.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace NS {

// The most that may wait at once in one queue, without the request under way.
struct RequestQueueLimits {
  std::size_t requests = 1024;
  std::size_t bytes = std::size_t{64} << 20; // of arguments
};

// The number of requests that run at once: at most as many as the descriptor
// table serves, and of one user few enough that no other user has to wait.
WorkerLimits limitsOfRequestsUnderWay();

// Thread-safe. Starts with one hold. When the last owner of a queue goes, the
// waiting requests still run; those of a held queue are dropped.
class RequestQueue : public std::enable_shared_from_this<RequestQueue> {
public:
  RequestQueue(std::shared_ptr<WorkerPool> pool, RequestQueueLimits limits);

  // The user of the requests, for threads to be shared fairly between users; 0
  // at first. Counts for requests that get a thread afterwards.
  void setUser(WorkerPool::User user);

  // False when a limit is reached; the request is then not queued. The request
  // must not throw. Raises std::bad_alloc, without queueing it, when memory
  // runs out.
  bool enqueue(std::function<void()> request, std::size_t bytes);
  // Runs the request on the calling thread if it is its turn at once; it must
  // not throw. False when others wait or are under way, or the queue is held.
  bool runAtOnce(const std::function<void()> &request);
  // Begins no further request until each hold is released.
  void hold();
  // Raises std::bad_alloc, and keeps the hold, when no memory is left for the
  // waiting requests to go on.
  void release();

private:
  struct Entry {
    std::function<void()> request;
    std::size_t bytes;
  };

  void scheduleLocked();
  void runSome();
  bool runTurn();

  const std::shared_ptr<WorkerPool> pool_;
  const RequestQueueLimits limits_;
  std::mutex mutex_;
  WorkerPool::User user_ = 0;
  std::deque<Entry> waiting_;
  std::size_t waitingBytes_ = 0;
  unsigned holds_ = 1;
  bool scheduled_ = false; // a thread has or will get this queue
};

} // namespace NS
