// The loop in which a thread waits for events and runs the blocks that were
// given to it.
#pragma once

#include "Foundation/Clock.h"

#include <functional>
#include <string>
#include <vector>

namespace NS {

// What a loop runs in. Of several kinds of waiting, a block runs only in those
// it was given for; the loop's other events are handled in all.
inline constexpr const char *DefaultRunLoopMode = "kCFRunLoopDefaultMode";
// For blocks: every mode of ordinary waiting, the default mode among them.
inline constexpr const char *RunLoopCommonModes = "kCFRunLoopCommonModes";

using RunLoopModes = std::vector<std::string>;

class RunLoop {
public:
  virtual ~RunLoop() = default;

  // The loop of the calling thread, made at its first use and gone with the
  // thread, blocks that did not run included.
  static RunLoop &currentRunLoop();
  // The loop of the thread that entered main.
  static RunLoop &mainRunLoop();

  // Handles events in the default mode until the loop is stopped. Called on
  // the loop's own thread.
  virtual void run() = 0;
  // Handles what is there in the mode, else waits for one event; false when
  // there was none until the limit, or the loop was stopped. A limit that has
  // passed only asks. Called on the loop's own thread; blocks that it runs may
  // call it again.
  virtual bool runMode(const std::string &mode, MonotonicTime limit) = 0;
  // Makes the innermost run return; from any thread.
  virtual void stop() = 0;

  // Runs the block on the loop's thread at a turn that begins after this call,
  // in one of the modes; never with no modes. From any thread, without
  // waiting. Blocks given by one thread run in the order in which it gave
  // them. An exception that leaves the block is logged and goes no further.
  virtual void performBlock(std::function<void()> block, const RunLoopModes &modes) = 0;
  // The same once the delay is over by the monotonic clock; blocks that are
  // due together run by when they were due.
  virtual void performBlock(std::function<void()> block, double delaySeconds,
                            const RunLoopModes &modes) = 0;
};

} // namespace NS
