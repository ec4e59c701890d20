// The loop in which a thread waits for events and runs blocks.
#pragma once

#include "Foundation/Base/Clock.h"

#include <functional>
#include <string>
#include <vector>

namespace NS {

// The modes of a loop: kinds of waiting. A block runs only in its own modes;
// the loop handles its other events in all.
inline constexpr const char *DefaultRunLoopMode = "kCFRunLoopDefaultMode";
// For blocks: every mode of ordinary waiting, which includes the default mode.
inline constexpr const char *RunLoopCommonModes = "kCFRunLoopCommonModes";

using RunLoopModes = std::vector<std::string>;

class RunLoop {
public:
  virtual ~RunLoop() = default;

  // The loop of the calling thread. Its first use makes it; it ends with the
  // thread and drops blocks that did not run.
  static RunLoop &currentRunLoop();
  // The loop of the thread that entered main.
  static RunLoop &mainRunLoop();

  // Handles events in the default mode until the loop is stopped. Called on
  // the loop's own thread.
  virtual void run() = 0;
  // Handles the present events in the mode, else waits for one event. False
  // when there was none until the limit, or the loop was stopped. With a limit
  // that has passed it does not wait. Called on the loop's own thread; blocks
  // that it runs may call it again.
  virtual bool runMode(const std::string &mode, MonotonicTime limit) = 0;
  // Makes the innermost run return; does nothing when the loop does not run. Any
  // thread may call it.
  virtual void stop() = 0;

  // Runs the block on the loop's thread at a turn that begins after this call,
  // in one of the modes; never with no modes. Any thread may call it; it does
  // not wait. Blocks of one thread run in the order of their calls. An
  // exception that leaves the block is logged and stops there.
  virtual void performBlock(std::function<void()> block, const RunLoopModes &modes) = 0;
  // Runs the block after the delay by the monotonic clock; blocks that are due
  // together run in the order of their due times.
  virtual void performBlock(std::function<void()> block, double delaySeconds,
                            const RunLoopModes &modes) = 0;
};

} // namespace NS
