// Additions to all objects: change notices on the main thread, values pushed
// back through bindings, blocks run later, on other threads or with a limit,
// casts of values of unknown class, and equality that knows nil.
//
// Any thread may call all functions. A failed assertion names the source file
// "Sources/Additions/NSObjectAdditions". A call with a null receiver does
// nothing. A queued call keeps no receiver alive.
#pragma once

#include "Foundation/Base/Object.h"
#include "Foundation/Threads/RunLoop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kw {

using Block = std::function<void()>;
// A block that reports its own end by calling its argument, on any thread,
// before or after it returns.
using CompletionBlock = std::function<void(const Block &completion)>;

inline constexpr const char *PrivilegedAgentHasInterruptedNotification =
    "PrivilegedAgentHasInterrupted";

// Calls the block on this thread and blocks until the completion was called.
// Never call it when the completion needs this very thread. A second call of
// the completion does nothing.
void KWRunBlockAndWait(const CompletionBlock &block);
// Waits at most that many seconds by the monotonic clock, and not at all for 0
// and less. The block itself must record the completion if the caller needs to
// know about it. The completion may be called at any later time.
void KWRunBlockAndWaitWithTimeout(const CompletionBlock &block, std::int64_t seconds);
// Waits until the completion or the first
// PrivilegedAgentHasInterruptedNotification of the default centre, from any
// poster, after the call. Both may come, in either order or at once.
void KWRunBlockAndWaitUntilAgentInterrupted(const CompletionBlock &block);

// Runs the block on the main thread, and waits for it or not. On the main
// thread both call it at once. The sender is the caller: a null one is logged,
// and off the main thread the block then never runs. Waiting needs a running
// main run loop.
void runOnMainQueueSync(const std::shared_ptr<NS::Object> &aSender, const Block &block);
void runOnMainQueueAsync(const std::shared_ptr<NS::Object> &aSender, const Block &block);

// Tells the receiver, if it implements NS::KeyValueObserving, on the main
// thread: at once there, queued from other threads. A receiver that is gone by
// then gets no notice, and a nil key none either.
void willChangeValueForKeyOnMainThread(const std::shared_ptr<NS::Object> &receiver,
                                       const std::optional<std::string> &key);
void didChangeValueForKeyOnMainThread(const std::shared_ptr<NS::Object> &receiver,
                                      const std::optional<std::string> &key);

// Writes a value back to the object that a binding of the receiver follows,
// through the reverse of the binding's transformer if that allows it. Passes
// over a receiver without that binding and logs a binding that follows no
// object. A nil binding fails an assertion. Raises exceptions of the followed
// object.
void propagateValue(const std::shared_ptr<NS::Object> &receiver,
                    const std::shared_ptr<NS::Object> &value,
                    const std::optional<std::string> &binding);
// Ends the binding if there is one.
void safeUnbind(const std::shared_ptr<NS::Object> &receiver, const std::string &binding);

// A delay in seconds for performBlock.
struct AfterDelay {
  double seconds;
};
struct Timeout {
  double seconds;
};

// Calls the block; does nothing without one.
void fireBlockAfterDelay(const std::shared_ptr<NS::Object> &receiver, const Block &block);
// Runs the block on this thread's run loop, which must be running, in the
// common modes after the delay.
void performBlock(const std::shared_ptr<NS::Object> &receiver, const Block &block,
                  AfterDelay delay);
// Runs the block on the main run loop in the given modes; no modes means no
// run. On the main thread itself a call that waits runs the block at once; one
// that does not wait queues it.
void performBlockOnMainThread(const std::shared_ptr<NS::Object> &receiver, const Block &block,
                              bool waitUntilDone, const NS::RunLoopModes &inModes);
// Runs the block in the background and waits for it, for the whole seconds of
// the limit. When the block takes longer, logs this thread's stack, and the
// block runs on to its end. A nil block fails an assertion.
void performBlock(const std::shared_ptr<NS::Object> &receiver, const Block &block, Timeout timeout);

// Returns the object when it is of the class, derives from it or conforms to
// it, else null.
std::shared_ptr<NS::Object> dynamicCastObject(const NS::Class &receiver,
                                              const std::shared_ptr<NS::Object> &object);
// The same, but another class is a programming error: it fails an assertion,
// and returns the object unchanged if the handler returns. Null passes.
std::shared_ptr<NS::Object> castObject(const NS::Class &receiver,
                                       const std::shared_ptr<NS::Object> &object);

// Both, for code that goes on to use the class. A C++ pointer cannot name a
// class that its object is not of, so a failed check whose handler returns
// gives null here.
template <typename T>
std::shared_ptr<T> dynamicCastObject(const std::shared_ptr<NS::Object> &object) {
  return std::dynamic_pointer_cast<T>(object);
}
template <typename T> std::shared_ptr<T> castObject(const std::shared_ptr<NS::Object> &object) {
  return std::dynamic_pointer_cast<T>(castObject(NS::Class::of<T>(), object));
}

// Returns the object as the interface, null when it does not conform.
template <typename Protocol>
std::shared_ptr<Protocol> dynamicCastToProtocol(const std::shared_ptr<NS::Object> &object) {
  return std::dynamic_pointer_cast<Protocol>(object);
}

// True for the same object twice, null included; false when exactly one is
// null; otherwise the first object's answer about the second.
bool isEqualObject(const std::shared_ptr<NS::Object> &object,
                   const std::shared_ptr<NS::Object> &other);

} // namespace kw
