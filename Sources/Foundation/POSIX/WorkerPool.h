// Threads for work that may block for long: one more is started whenever all
// are busy, and one that has been idle for a while goes away, all but one.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace NS {

class WorkerPool {
public:
  // At most so many threads at once; further work waits for one. The first is
  // started here, so that work finds one even when the system gives no more:
  // throws std::system_error when it cannot be.
  WorkerPool(std::size_t threadLimit, std::chrono::milliseconds idleTime);
  // Does not wait: threads finish what was submitted and then end.
  ~WorkerPool();
  WorkerPool(const WorkerPool &) = delete;
  WorkerPool &operator=(const WorkerPool &) = delete;

  // Thread-safe; does not block. The work must not throw.
  void submit(std::function<void()> work);
  // Threads alive now, and those of them that wait for work.
  std::size_t threadCount() const;
  std::size_t idleThreadCount() const;

private:
  struct State;
  static void workOn(const std::shared_ptr<State> &state);
  std::shared_ptr<State> state_;
};

} // namespace NS
