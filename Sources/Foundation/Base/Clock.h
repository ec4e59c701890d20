// Both clocks of the host and waiting on them, so that a test can move time
// instead of waiting.
//
// Thread-safe.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <chrono>
#include <compare>
#include <condition_variable>
#include <mutex>

namespace NS {

// Nanoseconds since a moment that differs between runs of the host; no user can
// set this clock. The greatest value never comes.
struct MonotonicTime {
  std::chrono::nanoseconds sinceStart{};
  friend std::strong_ordering operator<=>(const MonotonicTime &, const MonotonicTime &) = default;
};

// Nanoseconds since 1970 by the wall clock, which users may set. The greatest
// value never comes.
struct WallTime {
  std::chrono::nanoseconds since1970{};
  friend std::strong_ordering operator<=>(const WallTime &, const WallTime &) = default;
};

class Clock : public SharedInstance<Clock> {
public:
  virtual ~Clock() = default;
  static Clock &real();

  virtual MonotonicTime monotonicTime() = 0;
  virtual WallTime wallTime() = 0;

  // Blocks, with the lock released, until the condition is notified or the
  // clock of the deadline reaches it. Wake-ups may be spurious: callers check
  // their condition and the time again.
  virtual void wait(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                    MonotonicTime deadline) = 0;
  virtual void wait(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
                    WallTime deadline) = 0;
};

} // namespace NS
