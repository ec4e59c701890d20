// Groups as a counter under a mutex, waited for through the shared clock.
#include "Foundation/Threads/Dispatch.h"

#include "Foundation/Base/Log.h"

#include <condition_variable>
#include <limits>

namespace NS {
namespace {

std::chrono::nanoseconds saturatedSum(std::chrono::nanoseconds now, std::int64_t nanoseconds) {
  constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
  if (nanoseconds > 0 && now.count() > highest - nanoseconds)
    return std::chrono::nanoseconds(highest);
  return now + std::chrono::nanoseconds(nanoseconds);
}

class Group final : public DispatchGroup {
public:
  void enter() override {
    std::lock_guard lock(mutex_);
    ++count_;
  }

  void leave() override {
    std::unique_lock lock(mutex_);
    if (count_ == 0) {
      lock.unlock();
      Log("A dispatch group was left more often than it was entered");
      return;
    }
    // Under the mutex, since a waiter that saw the count may destroy the group.
    if (--count_ == 0) {
      ++emptied_;
      done_.notify_all();
    }
  }

  void wait() override {
    std::unique_lock lock(mutex_);
    std::uint64_t before = emptied_;
    done_.wait(lock, [&] { return isOver(before); });
  }
  bool wait(MonotonicTime deadline) override {
    return waitUntil(deadline, [](Clock &clock) { return clock.monotonicTime(); });
  }
  bool wait(WallTime deadline) override {
    return waitUntil(deadline, [](Clock &clock) { return clock.wallTime(); });
  }

  std::uint64_t count() const override {
    std::lock_guard lock(mutex_);
    return count_;
  }

private:
  // A group that was emptied and entered again has ended the waits before.
  bool isOver(std::uint64_t emptiedBefore) const {
    return count_ == 0 || emptied_ != emptiedBefore;
  }

  template <typename Time, typename Now> bool waitUntil(Time deadline, Now now) {
    if (deadline == Time{std::chrono::nanoseconds::max()}) {
      wait();
      return true;
    }
    Clock &clock = Clock::shared();
    std::unique_lock lock(mutex_);
    std::uint64_t before = emptied_;
    while (!isOver(before)) {
      if (now(clock) >= deadline)
        return false;
      clock.wait(done_, lock, deadline);
    }
    return true;
  }

  mutable std::mutex mutex_;
  std::condition_variable done_;
  std::uint64_t count_ = 0;   // entered and not yet left
  std::uint64_t emptied_ = 0; // how often the count came to 0
};

} // namespace

MonotonicTime dispatchTime(std::int64_t nanoseconds) {
  return {saturatedSum(Clock::shared().monotonicTime().sinceStart, nanoseconds)};
}

WallTime dispatchWallTime(std::int64_t nanoseconds) {
  return {saturatedSum(Clock::shared().wallTime().since1970, nanoseconds)};
}

std::shared_ptr<DispatchGroup> DispatchGroup::create() {
  return std::make_shared<Group>();
}

} // namespace NS
