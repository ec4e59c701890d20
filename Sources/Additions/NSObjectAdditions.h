// What the whole toolkit adds to objects: change notices on the main thread,
// values pushed back through bindings, blocks run later, elsewhere or with a
// limit, casts of values of unknown class, and equality that knows nil.
//
// All may be called from any thread. A failed assertion names the source file
// "Sources/Additions/NSObjectAdditions". A null receiver is a message that
// goes nowhere; no receiver is kept alive by what is queued.
#pragma once

#include "Foundation/Object.h"
#include "Foundation/RunLoop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kw {

using Block = std::function<void()>;
// A block that reports its own end by calling what it is given, on any thread,
// before or after it returns.
using CompletionBlock = std::function<void(const Block &completion)>;

inline constexpr const char *PrivilegedAgentHasInterruptedNotification =
    "PrivilegedAgentHasInterrupted";

// Calls the block on this thread and blocks until the completion was called.
// Never wait where the completion needs this very thread. A second call of the
// completion does nothing.
void KWRunBlockAndWait(const CompletionBlock &block);
// The same for at most that many seconds by the monotonic clock, not at all
// for 0 and less. Whoever must know whether the completion came records it in
// the block. The completion may be called at any later time.
void KWRunBlockAndWaitWithTimeout(const CompletionBlock &block, std::int64_t seconds);
// The same until the completion or the first
// PrivilegedAgentHasInterruptedNotification of the default centre, posted by
// anybody from the call on. Both may come, in either order or at once.
void KWRunBlockAndWaitUntilAgentInterrupted(const CompletionBlock &block);

// Runs the block on the main thread and waits for it, or does not wait; on the
// main thread both call it at once. The sender is who asks: with a null one
// the mistake is logged, and elsewhere than on the main thread the block never
// runs. Waiting needs a main run loop that runs.
void runOnMainQueueSync(const std::shared_ptr<NS::Object> &aSender, const Block &block);
void runOnMainQueueAsync(const std::shared_ptr<NS::Object> &aSender, const Block &block);

// Tell the receiver, if it answers to NS::KeyValueObserving, on the main
// thread: at once there, queued from elsewhere. A receiver that is gone by
// then is told nothing, and nobody is told of a nil key.
void willChangeValueForKeyOnMainThread(const std::shared_ptr<NS::Object> &receiver,
                                       const std::optional<std::string> &key);
void didChangeValueForKeyOnMainThread(const std::shared_ptr<NS::Object> &receiver,
                                      const std::optional<std::string> &key);

// Writes a value back to the object that a binding of the receiver follows,
// through the reverse of the binding's transformer where there is one that
// allows it. A receiver without that binding is passed over; one that follows
// nothing is logged. A nil binding fails an assertion. Raises what the
// followed object raises.
void propagateValue(const std::shared_ptr<NS::Object> &receiver,
                    const std::shared_ptr<NS::Object> &value,
                    const std::optional<std::string> &binding);
// Ends the binding if there is one.
void safeUnbind(const std::shared_ptr<NS::Object> &receiver, const std::string &binding);

// What a time in seconds means to performBlock.
struct AfterDelay {
  double seconds;
};
struct Timeout {
  double seconds;
};

// Calls the block; without one does nothing.
void fireBlockAfterDelay(const std::shared_ptr<NS::Object> &receiver, const Block &block);
// Runs the block on this thread's run loop, which must be running, in the
// common modes once the delay is over.
void performBlock(const std::shared_ptr<NS::Object> &receiver, const Block &block,
                  AfterDelay delay);
// Runs the block on the main run loop in the modes, none of them being a
// request for nothing. Waiting on the main thread itself calls the block;
// without waiting it is queued there too.
void performBlockOnMainThread(const std::shared_ptr<NS::Object> &receiver, const Block &block,
                              bool waitUntilDone, const NS::RunLoopModes &inModes);
// Runs the block in the background and waits for it, for the whole seconds of
// the limit. A block that takes longer is logged with this thread's stack and
// runs on to its end. A nil block fails an assertion.
void performBlock(const std::shared_ptr<NS::Object> &receiver, const Block &block, Timeout timeout);

// The object when it is of the class, derives from it or conforms to it, else
// null.
std::shared_ptr<NS::Object> dynamicCastObject(const NS::Class &receiver,
                                              const std::shared_ptr<NS::Object> &object);
// The same where another class is a programming error: it fails an assertion,
// and should the handler return, gives the object unchanged. Null passes.
std::shared_ptr<NS::Object> castObject(const NS::Class &receiver,
                                       const std::shared_ptr<NS::Object> &object);

// Both for code that goes on to use the class. Since a C++ pointer cannot name
// a class that its object is not of, a failed check whose handler returns
// gives null here.
template <typename T>
std::shared_ptr<T> dynamicCastObject(const std::shared_ptr<NS::Object> &object) {
  return std::dynamic_pointer_cast<T>(object);
}
template <typename T> std::shared_ptr<T> castObject(const std::shared_ptr<NS::Object> &object) {
  return std::dynamic_pointer_cast<T>(castObject(NS::Class::of<T>(), object));
}

// The object as the interface, null when it does not conform.
template <typename Protocol>
std::shared_ptr<Protocol> dynamicCastToProtocol(const std::shared_ptr<NS::Object> &object) {
  return std::dynamic_pointer_cast<Protocol>(object);
}

// True for one and the same, null included; false when exactly one is null;
// otherwise what the first says of the second.
bool isEqualObject(const std::shared_ptr<NS::Object> &object,
                   const std::shared_ptr<NS::Object> &other);

} // namespace kw
