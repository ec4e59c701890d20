// Shares of the descriptor table, given in the order of the calls.
#include "Foundation/Descriptors/DescriptorBudget.h"

#include "Foundation/Base/Progress.h"

#include <algorithm>
#include <chrono>
#include <sys/resource.h>

namespace NS {
namespace {

// The interval at which a waiting thread checks whether its request was
// cancelled.
constexpr std::chrono::milliseconds cancellationInterval{100};

std::size_t tableSize() {
  rlimit limit;
  // The size that counts when the limit is higher, or when there is none: other
  // limits bound the number of requests long before.
  constexpr rlim_t most = 1 << 20;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
    return 0;
  return static_cast<std::size_t>(std::min(limit.rlim_cur, most));
}

} // namespace

DescriptorBudget &DescriptorBudget::ofWalks() {
  static auto *walks = new DescriptorBudget([] { return tableSize() / 2 / perWalk; });
  return *walks;
}

std::size_t DescriptorBudget::requestsServed() {
  return std::max<std::size_t>(tableSize() * 3 / 8 / perRequest, 1);
}

DescriptorBudget::Share DescriptorBudget::take() {
  Progress &progress = Progress::current();
  std::unique_lock lock(mutex_);
  auto place = queue_.insert(queue_.end(), std::monostate{});
  auto isServed = [&] { return place == queue_.begin() && (inUse_ == 0 || inUse_ < capacity_()); };
  while (!isServed() && !progress.isCancelled())
    freed_.wait_for(lock, cancellationInterval);
  bool served = isServed();
  queue_.erase(place);
  freed_.notify_all(); // another caller is at the front of the queue now
  if (!served)
    return {};
  ++inUse_;
  return Share(*this, 1);
}

DescriptorBudget::Share DescriptorBudget::takeSpare(std::size_t count) {
  std::lock_guard lock(mutex_);
  if (!queue_.empty() || (inUse_ + count) * 2 > capacity_())
    return {};
  inUse_ += count;
  return Share(*this, count);
}

WalkShare::WalkShare() {
  // A weak pointer: the walk, and its share with it, may end on another thread.
  thread_local std::weak_ptr<DescriptorBudget::Share> ofThread;
  share_ = ofThread.lock();
  if (share_)
    return;
  share_ = std::make_shared<DescriptorBudget::Share>();
  *share_ = DescriptorBudget::ofWalks().take();
  ofThread = share_;
}

std::size_t DescriptorBudget::inUse() const {
  std::lock_guard lock(mutex_);
  return inUse_;
}

std::size_t DescriptorBudget::waiting() const {
  std::lock_guard lock(mutex_);
  return queue_.size();
}

void DescriptorBudget::giveBack(std::size_t count) {
  std::lock_guard lock(mutex_);
  inUse_ -= count;
  freed_.notify_all();
}

} // namespace NS
