// The part of a run loop that all hosts share: the blocks that wait for it, and
// its runs under way, since a block may run the loop again.
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

  // Ends the wait of the loop, if it waits. Any thread may call it; the mutex is
  // free.
  virtual void wake() = 0;

  // For the loop's thread, the second one during a run. Null without a run.
  const Frame *innermost();
  bool isStopped();

  RunLoopBlocks blocks_;
  std::mutex mutex_;
  std::vector<Frame *> frames_; // innermost last
};

} // namespace NS
