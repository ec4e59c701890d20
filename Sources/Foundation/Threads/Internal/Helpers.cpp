// The count of the process.
#include "Foundation/Threads/Internal/Helpers.h"

#include "Foundation/Threads/Internal/Processors.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

namespace NS {
namespace {

// Threads change it with the lock held. They read it without where an old value
// does no harm.
struct Count {
  std::mutex mutex;
  std::atomic<unsigned> threads{0}; // of operations, and their helpers
  std::atomic<unsigned> waiting{0}; // those among them that wait for a device

  unsigned running() const {
    unsigned waits = waiting.load(std::memory_order_relaxed);
    return threads.load(std::memory_order_relaxed) - waits;
  }
};

Count &count() {
  static auto *ofProcess = new Count;
  return *ofProcess;
}

} // namespace

Helpers::Helpers(unsigned processors)
    : processors_(processors), mostRunning_(Processors::shared().threadsForVolume()),
      mostThreads_(Processors::shared().threadsForDevice()) {}

void Helpers::want() {
  if (own_)
    return;
  enter(true);
  own_.helpers_ = this;
}

HelperPlace Helpers::take() {
  return enter(false) ? HelperPlace(*this) : HelperPlace();
}

bool Helpers::isCrowded() const {
  return count().threads.load(std::memory_order_relaxed) > processors_;
}

bool Helpers::isInTheWay() const {
  return count().running() > processors_;
}

// Counts one more thread, unless there are enough. An operation's own thread
// always counts, since it runs in any case.
bool Helpers::enter(bool isOwn) {
  Count &all = count();
  std::lock_guard lock(all.mutex);
  bool isComplete = running_ >= mostRunning_ || threads_ >= mostThreads_;
  bool areTooMany = all.running() >= processors_ || all.threads.load(std::memory_order_relaxed) >=
                                                        std::max(processors_, mostThreads_);
  if ((isComplete || areTooMany) && !isOwn)
    return false;
  ++all.threads;
  ++threads_;
  ++running_;
  return true;
}

void Helpers::leave(bool waits) {
  if (waits)
    setWaiting(false);
  Count &all = count();
  std::lock_guard lock(all.mutex);
  --all.threads;
  --threads_;
  --running_;
}

void Helpers::setWaiting(bool waits) {
  Count &all = count();
  std::lock_guard lock(all.mutex);
  if (waits) {
    ++all.waiting;
    --running_;
  } else {
    --all.waiting;
    ++running_;
  }
}

HelperPlace &HelperPlace::operator=(HelperPlace &&other) noexcept {
  rest();
  helpers_ = std::exchange(other.helpers_, nullptr);
  waits_ = std::exchange(other.waits_, false);
  return *this;
}

void HelperPlace::rest() {
  if (!helpers_)
    return;
  std::exchange(helpers_, nullptr)->leave(waits_);
  waits_ = waitedBefore_ = isLooking_ = false;
  pieces_ = 0;
}

bool HelperPlace::mayStay() const {
  return waits_ || !helpers_->isInTheWay();
}

void HelperPlace::begin() {
  isLooking_ = helpers_ && (pieces_ < 2 || pieces_ % interval == 0);
  ++pieces_;
  if (isLooking_)
    waitsBefore_ = waitsOfThisThread();
}

void HelperPlace::end() {
  if (!isLooking_)
    return;
  isLooking_ = false;
  bool waited = waitsOfThisThread() != waitsBefore_;
  bool waits = waited || waitedBefore_;
  waitedBefore_ = waited;
  if (waits != waits_)
    helpers_->setWaiting(waits);
  waits_ = waits;
}

} // namespace NS
