// The part of a run loop that all hosts share: the blocks that wait for it, and
// its runs under way. There may be several, since a block may run the loop
// again. Internal to Foundation.
#pragma once

#include "Foundation/Threads/Internal/RunLoopBlocks.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace NS {

class BlockRunLoop : public RunLoop {
public:
  void stop() override;
  void performBlock(std::function<void()> block, const RunLoopModes &modes) override;
  void performBlock(std::function<void()> block, double delaySeconds,
                    const RunLoopModes &modes) override;

protected:
  // One run under way. The loop's thread makes and removes frames.
  struct Frame {
    Frame(BlockRunLoop &owner, std::string runMode, MonotonicTime runLimit);
    ~Frame();
    Frame(const Frame &) = delete;
    Frame &operator=(const Frame &) = delete;

    BlockRunLoop &loop;
    const std::string mode;
    const MonotonicTime limit;
    bool isStopped = false; // under the loop's mutex
  };

  // Ends the wait of the loop, if it waits. Any thread may call it, without the
  // mutex.
  virtual void wake() = 0;

  // The innermost run; null when the loop does not run. For the loop's thread.
  const Frame *innermost();
  // Tells whether the innermost run was stopped. For the loop's thread, during a
  // run.
  bool isStopped();

  RunLoopBlocks blocks_;
  std::mutex mutex_;
  std::vector<Frame *> frames_; // innermost last
};

} // namespace NS
