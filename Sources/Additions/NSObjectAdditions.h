// What the whole toolkit adds to objects: blocks run later, elsewhere or with
// a limit, casts of values of unknown class, and equality that knows nil.
//
// All may be called from any thread. A failed assertion names the source file
// "Sources/Additions/NSObjectAdditions".
#pragma once

#include "Foundation/Object.h"

#include <cstdint>
#include <functional>
#include <memory>

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
