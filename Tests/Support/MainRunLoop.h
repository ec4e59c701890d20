// Drives the main run loop from a test, which runs on the main thread.
#pragma once

#include "Foundation/Threads/RunLoop.h"

#include <functional>

namespace kwtest {

inline bool turnMainRunLoop() {
  return NS::RunLoop::mainRunLoop().runMode(NS::DefaultRunLoopMode, {});
}

// Handles events until the condition holds, and checks it on this thread after
// every event. Another thread that makes it true must wake the loop with a
// block.
inline void runMainRunLoopUntil(const std::function<bool()> &condition) {
  while (!condition())
    NS::RunLoop::mainRunLoop().runMode(NS::DefaultRunLoopMode,
                                       NS::MonotonicTime{std::chrono::nanoseconds::max()});
}

} // namespace kwtest
