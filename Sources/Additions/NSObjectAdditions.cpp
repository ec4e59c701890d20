// Change notices, bindings, blocks on other threads and with delays, bounded
// waits and casts.
#include "Additions/NSObjectAdditions.h"

#include "Foundation/Base/AssertionHandler.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Threads/Dispatch.h"
#include "Foundation/Threads/NotificationCenter.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Values/KeyValueBinding.h"
#include "Foundation/Values/KeyValueCoding.h"
#include "Foundation/Values/KeyValueObserving.h"
#include "Foundation/Values/Null.h"
#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"
#include "Foundation/Values/ValueTransformer.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
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
  return std::clamp<std::int64_t>(seconds, 0, mostSeconds) * NS::NanosecondsPerSecond;
}

// Stops observing at any end of the wait, an exception of the block included.
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

void runOnMainQueue(const std::shared_ptr<NS::Object> &sender, const Block &block,
                    bool waitUntilDone) {
  if (NS::Thread::shared().isMainThread())
    fireBlockAfterDelay(sender, block);
  else
    performBlockOnMainThread(sender, block, waitUntilDone, {NS::RunLoopCommonModes});
}

using Notice = void (NS::KeyValueObserving::*)(const std::string &key);

void sendOnMainThread(const std::shared_ptr<NS::Object> &receiver,
                      const std::optional<std::string> &key, Notice notice) {
  if (!receiver || !key)
    return;
  std::weak_ptr<NS::Object> weakReceiver = receiver;
  runOnMainQueueAsync(receiver, [weakReceiver, key = *key, notice] {
    if (auto observing = dynamicCastToProtocol<NS::KeyValueObserving>(weakReceiver.lock()))
      (observing.get()->*notice)(key);
  });
}

constexpr const char *propagateValueName = "-[NSObject(KWBindings) propagateValue:forBinding:]";

// An option that is there and not the null object.
std::shared_ptr<NS::Object> usableOption(const NS::BindingOptions &options, const char *key) {
  auto found = options.find(key);
  return found == options.end() || NS::isNilOrNull(found->second) ? nullptr : found->second;
}

std::shared_ptr<NS::Object> transformerOf(const NS::BindingOptions &options) {
  if (auto transformer = usableOption(options, NS::ValueTransformerBindingOption))
    return transformer;
  auto name =
      dynamicCastObject<NS::String>(usableOption(options, NS::ValueTransformerNameBindingOption));
  return name ? NS::ValueTransformer::valueTransformerForName(name->string()) : nullptr;
}

std::shared_ptr<NS::Object> reverseTransformed(const std::shared_ptr<NS::Object> &value,
                                               const NS::BindingOptions &options,
                                               const std::string &binding) {
  std::shared_ptr<NS::Object> object = transformerOf(options);
  if (!object)
    return value;
  auto transformer = dynamicCastObject<NS::ValueTransformer>(object);
  if (transformer && transformer->allowsReverseTransformation())
    return transformer->reverseTransformedValue(value);
  NS::Log("WARNING: binding \"%@\" has value transformer, but it doesn't allow reverse "
          "transformations in %s",
          binding, propagateValueName);
  return value;
}

std::optional<NS::BindingInfo> infoForBinding(const std::shared_ptr<NS::Object> &receiver,
                                              const std::string &binding) {
  auto bound = dynamicCastToProtocol<NS::KeyValueBinding>(receiver);
  return bound ? bound->infoForBinding(binding) : std::nullopt;
}

void setValueForKeyPath(const std::shared_ptr<NS::Object> &object,
                        const std::shared_ptr<NS::Object> &value,
                        const std::shared_ptr<NS::Object> &keyPath) {
  auto coding = dynamicCastToProtocol<NS::KeyValueCoding>(object);
  if (!coding)
    throw NS::Exception(
        NS::UndefinedKeyException,
        NS::stringWithFormat("%@ has no values to set by key: %@", object, keyPath));
  coding->setValueForKeyPath(value, keyPath->description());
}

} // namespace

void runOnMainQueueSync(const std::shared_ptr<NS::Object> &aSender, const Block &block) {
  if (!aSender)
    NS::Log("runOnMainQueueSync: aSender could not be nil!");
  runOnMainQueue(aSender, block, true);
}

void runOnMainQueueAsync(const std::shared_ptr<NS::Object> &aSender, const Block &block) {
  if (!aSender)
    NS::Log("runOnMainQueueAsync: aSender could not be nil!");
  runOnMainQueue(aSender, block, false);
}

void willChangeValueForKeyOnMainThread(const std::shared_ptr<NS::Object> &receiver,
                                       const std::optional<std::string> &key) {
  sendOnMainThread(receiver, key, &NS::KeyValueObserving::willChangeValueForKey);
}

void didChangeValueForKeyOnMainThread(const std::shared_ptr<NS::Object> &receiver,
                                      const std::optional<std::string> &key) {
  sendOnMainThread(receiver, key, &NS::KeyValueObserving::didChangeValueForKey);
}

void propagateValue(const std::shared_ptr<NS::Object> &receiver,
                    const std::shared_ptr<NS::Object> &value,
                    const std::optional<std::string> &binding) {
  if (!receiver)
    return;
  if (!binding) {
    NS::assertionFailed(sourceFile, "Invalid parameter not satisfying: %@", "binding != nil");
    return;
  }
  std::optional<NS::BindingInfo> info = infoForBinding(receiver, *binding);
  if (!info)
    return;
  std::shared_ptr<NS::Object> written =
      info->options ? reverseTransformed(value, *info->options, *binding) : value;
  if (NS::isNilOrNull(info->observedObject)) {
    NS::Log("ERROR: NSObservedObjectKey was nil for binding \"%@\" in %s", *binding,
            propagateValueName);
    return;
  }
  if (NS::isNilOrNull(info->observedKeyPath)) {
    NS::Log("ERROR: NSObservedKeyPathKey was nil for binding \"%@\" in %s", *binding,
            propagateValueName);
    return;
  }
  setValueForKeyPath(info->observedObject, written, info->observedKeyPath);
}

void safeUnbind(const std::shared_ptr<NS::Object> &receiver, const std::string &binding) {
  if (infoForBinding(receiver, binding))
    dynamicCastToProtocol<NS::KeyValueBinding>(receiver)->unbind(binding);
}

void fireBlockAfterDelay(const std::shared_ptr<NS::Object> &, const Block &block) {
  if (block)
    block();
}

void performBlock(const std::shared_ptr<NS::Object> &receiver, const Block &block,
                  AfterDelay delay) {
  if (receiver)
    NS::RunLoop::currentRunLoop().performBlock(block, delay.seconds, {NS::RunLoopCommonModes});
}

void performBlockOnMainThread(const std::shared_ptr<NS::Object> &receiver, const Block &block,
                              bool waitUntilDone, const NS::RunLoopModes &inModes) {
  if (!receiver)
    return;
  if (waitUntilDone && NS::Thread::shared().isMainThread()) {
    fireBlockAfterDelay(receiver, block);
    return;
  }
  NS::RunLoop &mainLoop = NS::RunLoop::mainRunLoop();
  if (!waitUntilDone) {
    mainLoop.performBlock(block, inModes);
    return;
  }
  auto group = NS::DispatchGroup::create();
  group->enter();
  // The destruction of the queued block leaves the group: after its run, after
  // an exception, or without a run.
  std::shared_ptr<void> done(nullptr, [group](void *) { group->leave(); });
  mainLoop.performBlock([block, done = std::move(done)] { fireBlockAfterDelay(nullptr, block); },
                        inModes);
  group->wait();
}

void performBlock(const std::shared_ptr<NS::Object> &receiver, const Block &block,
                  Timeout timeout) {
  if (!receiver)
    return;
  if (!block) {
    NS::assertionFailed(sourceFile, "Block shouldn't be nil");
    return;
  }
  // Limited to the range of the type; 0 for NaN.
  std::int64_t wholeSeconds = NS::Number::numberWithDouble(timeout.seconds)->longLongValue();
  auto finished = std::make_shared<std::atomic<bool>>(false);
  KWRunBlockAndWaitWithTimeout(
      [&block, finished](const Block &completion) {
        NS::DispatchQueue::backgroundQueue().async([block, finished, completion] {
          block();
          *finished = true;
          completion();
        });
      },
      wholeSeconds);
  if (!*finished)
    NS::Log("Operation timed out %@", NS::Thread::shared().callStackSymbols());
}

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
