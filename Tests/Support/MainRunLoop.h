// Drives the main run loop from a test, which stands on the main thread.
#pragma once

#include "Foundation/RunLoop.h"

#include <functional>

namespace kwtest {

inline bool turnMainRunLoop() {
  return NS::RunLoop::mainRunLoop().runMode(NS::DefaultRunLoopMode, {});
}

// Handles events until the condition holds; it is asked on this thread after
// every event. Whoever makes it true from another thread gives the loop a
// block to wake it.
inline void runMainRunLoopUntil(const std::function<bool()> &condition) {
  while (!condition())
    NS::RunLoop::mainRunLoop().runMode(NS::DefaultRunLoopMode,
                                       NS::MonotonicTime{std::chrono::nanoseconds::max()});
}

} // namespace kwtest
