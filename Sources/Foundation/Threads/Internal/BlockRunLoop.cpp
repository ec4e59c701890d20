// The blocks and the runs of a loop, the same on every host.
#include "Foundation/Threads/Internal/BlockRunLoop.h"

#include <utility>

namespace NS {

BlockRunLoop::Frame::Frame(BlockRunLoop &owner, std::string runMode, MonotonicTime runLimit)
    : loop(owner), mode(std::move(runMode)), limit(runLimit) {
  std::lock_guard lock(loop.mutex_);
  loop.frames_.push_back(this);
}

BlockRunLoop::Frame::~Frame() {
  std::lock_guard lock(loop.mutex_);
  loop.frames_.pop_back();
}

void BlockRunLoop::stop() {
  {
    std::lock_guard lock(mutex_);
    if (frames_.empty())
      return;
    frames_.back()->isStopped = true;
  }
  wake();
}

void BlockRunLoop::performBlock(std::function<void()> block, const RunLoopModes &modes) {
  blocks_.add(std::move(block), modes);
  wake();
}

void BlockRunLoop::performBlock(std::function<void()> block, double delaySeconds,
                                const RunLoopModes &modes) {
  blocks_.addDelayed(delaySeconds, std::move(block), modes);
  wake();
}

const BlockRunLoop::Frame *BlockRunLoop::innermost() {
  std::lock_guard lock(mutex_);
  return frames_.empty() ? nullptr : frames_.back();
}

bool BlockRunLoop::isStopped() {
  std::lock_guard lock(mutex_);
  return frames_.back()->isStopped;
}

} // namespace NS
