// One client's requests, which take turns on a shared pool.
#include "Service/Linux/RequestQueue.h"

#include "Foundation/Descriptors/DescriptorBudget.h"

#include <algorithm>
#include <new>
#include <utility>

namespace NS {
namespace {

// After so many requests the queue releases its thread, so that a client that
// never pauses does not keep it from others when the pool is at its limit.
constexpr int requestsPerTurn = 32;

constexpr std::size_t mostUnderWay = 1024;
constexpr std::size_t mostUnderWayOfOneUser = 256;

} // namespace

WorkerLimits limitsOfRequestsUnderWay() {
  std::size_t served = DescriptorBudget::requestsServed();
  std::size_t ofOneUser = std::max<std::size_t>(served - served / 4, 1);
  return {std::min(mostUnderWay, served), std::min(mostUnderWayOfOneUser, ofOneUser)};
}

RequestQueue::RequestQueue(std::shared_ptr<WorkerPool> pool, RequestQueueLimits limits)
    : pool_(std::move(pool)), limits_(limits) {}

void RequestQueue::setUser(WorkerPool::User user) {
  std::lock_guard lock(mutex_);
  user_ = user;
}

bool RequestQueue::enqueue(std::function<void()> request, std::size_t bytes) {
  std::lock_guard lock(mutex_);
  if (waiting_.size() >= limits_.requests || bytes > limits_.bytes - waitingBytes_)
    return false;
  waiting_.push_back({std::move(request), bytes});
  try {
    scheduleLocked();
  } catch (const std::bad_alloc &) {
    waiting_.pop_back();
    throw;
  }
  waitingBytes_ += bytes;
  return true;
}

bool RequestQueue::runAtOnce(const std::function<void()> &request) {
  {
    std::lock_guard lock(mutex_);
    if (scheduled_ || holds_ > 0 || !waiting_.empty())
      return false;
    scheduled_ = true; // requests that come meanwhile wait behind this one
  }
  request();
  std::lock_guard lock(mutex_);
  scheduled_ = false;
  scheduleLocked();
  return true;
}

void RequestQueue::hold() {
  std::lock_guard lock(mutex_);
  ++holds_;
}

void RequestQueue::release() {
  std::lock_guard lock(mutex_);
  if (holds_ == 0)
    return;
  --holds_;
  try {
    scheduleLocked();
  } catch (const std::bad_alloc &) {
    ++holds_;
    throw;
  }
}

void RequestQueue::scheduleLocked() {
  if (scheduled_ || holds_ > 0 || waiting_.empty())
    return;
  // runSome waits for the lock that the caller holds, so it sees scheduled_ set.
  pool_->submit([self = shared_from_this()] { self->runSome(); }, user_);
  scheduled_ = true;
}

void RequestQueue::runSome() {
  while (runTurn()) {
  }
}

// Tells whether this thread must take another turn, since the pool has no
// other.
bool RequestQueue::runTurn() {
  for (int turn = 0; turn < requestsPerTurn; ++turn) {
    Entry entry;
    {
      std::lock_guard lock(mutex_);
      if (holds_ > 0 || waiting_.empty()) {
        scheduled_ = false;
        return false;
      }
      entry = std::move(waiting_.front());
      waiting_.pop_front();
      waitingBytes_ -= entry.bytes;
    }
    entry.request();
  }
  std::lock_guard lock(mutex_);
  scheduled_ = false;
  try {
    scheduleLocked();
    return false;
  } catch (const std::bad_alloc &) {
    scheduled_ = true;
    return true;
  }
}

} // namespace NS
