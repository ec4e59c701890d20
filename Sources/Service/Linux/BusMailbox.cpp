// Passes work from one thread to another.
#include "Service/Linux/BusMailbox.h"

#include <utility>

namespace NS {

void BusMailbox::post(Work work) {
  Works works;
  works.push_back(std::move(work));
  post(std::move(works));
}

void BusMailbox::post(Works works) noexcept {
  std::lock_guard lock(mutex_);
  if (closed_)
    return;
  work_.splice(work_.end(), works);
  waker_.wake();
}

void BusMailbox::doOrPost(Work work) {
  Works works;
  works.push_back(std::move(work));
  {
    std::lock_guard lock(mutex_);
    if (closed_)
      return;
    if (taker_ != std::this_thread::get_id() || !work_.empty()) {
      work_.splice(work_.end(), works);
      waker_.wake();
      return;
    }
  }
  works.front()();
}

BusMailbox::Works BusMailbox::take() {
  std::lock_guard lock(mutex_);
  taker_ = std::this_thread::get_id();
  return std::exchange(work_, {});
}

void BusMailbox::close() {
  Works dropped;
  std::lock_guard lock(mutex_);
  closed_ = true;
  dropped.swap(work_);
}

} // namespace NS
