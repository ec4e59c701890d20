// Threads for work that may block for long, shared fairly between users. The pool
// starts one more when all are busy and ends one that has been idle for a while,
// but keeps at least one.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace NS {

// The number of pieces of work that may be under way at once.
struct WorkerLimits {
  std::size_t inAll = 64;
  // The rest is kept for other users, even while none of them has work.
  std::size_t ofOneUser = inAll;
};

class WorkerPool {
public:
  using User = std::uint32_t;
  // Called at the start of each thread.
  using Preparation = std::function<void()>;

  // Starts the first thread, so that work has one even when the system gives no
  // more. Throws std::system_error when that fails.
  WorkerPool(WorkerLimits limits, std::chrono::milliseconds idleTime, Preparation prepare = {});
  // Does not wait: threads finish the submitted work and then end.
  ~WorkerPool();
  WorkerPool(const WorkerPool &) = delete;
  WorkerPool &operator=(const WorkerPool &) = delete;

  // Thread-safe; does not block. The work must not throw. Work of one user begins
  // in the order of its submission, that of several users by turns. A user
  // without work under way never waits for others: the first piece of each may
  // exceed the limit in all.
  void submit(std::function<void()> work, User user = 0);
  // The number of threads alive, and of those among them that wait for work.
  std::size_t threadCount() const;
  std::size_t idleThreadCount() const;

private:
  struct State;
  static void workOn(const std::shared_ptr<State> &state);
  std::shared_ptr<State> state_;
};

} // namespace NS
