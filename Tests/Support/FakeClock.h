// A clock that moves only by hand. A wait with a deadline takes no time: it
// moves the clock to the deadline.
#pragma once

#include "Foundation/Base/Clock.h"

#include <optional>

namespace kwtest {

class FakeClock final : public NS::Clock {
public:
  NS::MonotonicTime monotonicTime() override {
    std::lock_guard lock(mutex_);
    return monotonic_;
  }
  NS::WallTime wallTime() override {
    std::lock_guard lock(mutex_);
    ++wallReads_;
    return wall_;
  }

  void wait(std::condition_variable &, std::unique_lock<std::mutex> &,
            NS::MonotonicTime deadline) override {
    std::lock_guard lock(mutex_);
    monotonicDeadline_ = monotonic_ = deadline;
  }
  void wait(std::condition_variable &, std::unique_lock<std::mutex> &,
            NS::WallTime deadline) override {
    std::lock_guard lock(mutex_);
    wallDeadline_ = wall_ = deadline;
  }

  void advance(std::chrono::nanoseconds by) {
    std::lock_guard lock(mutex_);
    monotonic_.sinceStart += by;
    wall_.since1970 += by;
  }

  // The last deadline of a wait on each clock; empty without one.
  std::optional<NS::MonotonicTime> monotonicDeadline() {
    std::lock_guard lock(mutex_);
    return monotonicDeadline_;
  }
  std::optional<NS::WallTime> wallDeadline() {
    std::lock_guard lock(mutex_);
    return wallDeadline_;
  }
  // How often the time on the wall was asked for.
  int wallReads() {
    std::lock_guard lock(mutex_);
    return wallReads_;
  }

private:
  std::mutex mutex_;
  NS::MonotonicTime monotonic_{std::chrono::hours(1)};
  NS::WallTime wall_{std::chrono::hours(24 * 365)};
  std::optional<NS::MonotonicTime> monotonicDeadline_;
  std::optional<NS::WallTime> wallDeadline_;
  int wallReads_ = 0;
};

} // namespace kwtest
