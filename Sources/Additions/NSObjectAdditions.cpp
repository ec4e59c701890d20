// Waiting for blocks, checked casts and equality.
#include "Additions/NSObjectAdditions.h"

#include "Foundation/AssertionHandler.h"
#include "Foundation/Dispatch.h"
#include "Foundation/NotificationCenter.h"

#include <atomic>
#include <limits>

namespace kw {
namespace {

constexpr std::string_view sourceFile = "Sources/Additions/NSObjectAdditions";

// A group entered once, and the leave that both ends of a race may call.
class SingleWait {
public:
  SingleWait() { group_->enter(); }

  void finish() {
    if (!finished_.exchange(true))
      group_->leave();
  }
  NS::DispatchGroup &group() { return *group_; }

private:
  std::shared_ptr<NS::DispatchGroup> group_ = NS::DispatchGroup::create();
  std::atomic<bool> finished_{false};
};

// Shared with the completion, which may be called when the waiter is gone.
std::shared_ptr<SingleWait> startedWait(const CompletionBlock &block) {
  auto wait = std::make_shared<SingleWait>();
  block([wait] { wait->finish(); });
  return wait;
}

std::int64_t nanosecondsOf(std::int64_t seconds) {
  constexpr std::int64_t mostSeconds =
      std::numeric_limits<std::int64_t>::max() / NS::NanosecondsPerSecond;
  if (seconds > mostSeconds)
    return std::numeric_limits<std::int64_t>::max();
  return seconds <= 0 ? 0 : seconds * NS::NanosecondsPerSecond;
}

// Stops observing however the wait ends, an exception of the block included.
class ScopedObserver {
public:
  ScopedObserver(const char *name, std::function<void(const NS::Notification &)> block)
      : center_(NS::NotificationCenter::defaultCenter()),
        token_(center_.addObserverForName(name, nullptr, std::move(block))) {}
  ~ScopedObserver() { center_.removeObserver(token_); }
  ScopedObserver(const ScopedObserver &) = delete;
  ScopedObserver &operator=(const ScopedObserver &) = delete;

private:
  NS::NotificationCenter &center_;
  std::shared_ptr<NS::Object> token_;
};

} // namespace

void KWRunBlockAndWait(const CompletionBlock &block) {
  startedWait(block)->group().wait();
}

void KWRunBlockAndWaitWithTimeout(const CompletionBlock &block, std::int64_t seconds) {
  std::shared_ptr<SingleWait> wait = startedWait(block);
  wait->group().wait(NS::dispatchTime(nanosecondsOf(seconds)));
}

void KWRunBlockAndWaitUntilAgentInterrupted(const CompletionBlock &block) {
  auto wait = std::make_shared<SingleWait>();
  ScopedObserver observer(PrivilegedAgentHasInterruptedNotification,
                          [wait](const NS::Notification &) { wait->finish(); });
  block([wait] { wait->finish(); });
  wait->group().wait();
}

std::shared_ptr<NS::Object> dynamicCastObject(const NS::Class &receiver,
                                              const std::shared_ptr<NS::Object> &object) {
  return object && object->isKindOfClass(receiver) ? object : nullptr;
}

std::shared_ptr<NS::Object> castObject(const NS::Class &receiver,
                                       const std::shared_ptr<NS::Object> &object) {
  if (object && !object->isKindOfClass(receiver))
    NS::assertionFailed(sourceFile, "Did fail to cast %@ to %@", object, receiver);
  return object;
}

bool isEqualObject(const std::shared_ptr<NS::Object> &object,
                   const std::shared_ptr<NS::Object> &other) {
  return NS::ObjectEqual()(object, other);
}

} // namespace kw
