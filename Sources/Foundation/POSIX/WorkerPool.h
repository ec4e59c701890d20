// Threads for work that may block for long, shared fairly between users: one
// more is started whenever all are busy, and one that has been idle for a while
// goes away, all but one.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace NS {

// How many pieces of work may be under way at once.
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

  // The first thread is started here, so that work finds one even when the
  // system gives no more: throws std::system_error when it cannot be.
  WorkerPool(WorkerLimits limits, std::chrono::milliseconds idleTime, Preparation prepare = {});
  // Does not wait: threads finish the submitted work and then end.
  ~WorkerPool();
  WorkerPool(const WorkerPool &) = delete;
  WorkerPool &operator=(const WorkerPool &) = delete;

  // Thread-safe; does not block. The work must not throw. Work of one user
  // begins in the order in which it came, that of several users by turns. A
  // user of whom nothing is under way never waits for others: the limit in all
  // is exceeded for the first piece of each.
  void submit(std::function<void()> work, User user = 0);
  // Threads alive now, and those of them that wait for work.
  std::size_t threadCount() const;
  std::size_t idleThreadCount() const;

private:
  struct State;
  static void workOn(const std::shared_ptr<State> &state);
  std::shared_ptr<State> state_;
};

} // namespace NS
