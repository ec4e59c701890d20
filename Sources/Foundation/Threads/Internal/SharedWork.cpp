// A bounded queue between one thread and its crew.
#include "Foundation/Threads/Internal/SharedWork.h"

#include <utility>

namespace NS {
namespace {

// Enough for no helper to run dry while the operation's thread is busy.
constexpr std::size_t mostWaiting = 16;

} // namespace

SharedWork::~SharedWork() {
  {
    Lock lock(mutex_);
    isEnding_ = true;
    waiting_.clear();
  }
  changed_.notify_all();
}

bool SharedWork::hasRoom() {
  Lock lock(mutex_);
  return waiting_.size() < mostWaiting;
}

bool SharedWork::offer(const std::shared_ptr<Portion> &portion, Piece piece) {
  Lock lock(mutex_);
  if (waiting_.size() >= mostWaiting || (idle_ == 0 && !crew_.call()))
    return false;
  waiting_.push_back({portion, std::move(piece)});
  ++portion->unfinished_;
  changed_.notify_one();
  return true;
}

void SharedWork::finish(const Portion &portion) {
  Lock lock(mutex_);
  while (portion.unfinished_ > 0) {
    if (waiting_.empty())
      changed_.wait(lock);
    else
      doNext(lock, own());
  }
}

void SharedWork::help(HelperPlace &place) {
  Lock lock(mutex_);
  while (!isEnding_ && place && place.mayStay()) {
    if (!waiting_.empty()) {
      doNext(lock, place);
      continue;
    }
    place.rest();
    ++idle_;
    changed_.wait(lock, [&] { return isEnding_ || !waiting_.empty(); });
    --idle_;
    place = crew_.takePlace();
  }
}

void SharedWork::doNext(Lock &lock, HelperPlace &place) {
  Task task = std::move(waiting_.front());
  waiting_.pop_front();
  lock.unlock();
  task.piece(place);
  task.piece = nullptr; // its contents are destroyed without the lock
  lock.lock();
  if (--task.portion->unfinished_ == 0)
    changed_.notify_all();
}

} // namespace NS
