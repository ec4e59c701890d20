// Waiting for the work of other threads: groups, deadlines, once-tokens and the
// queue for background work.
//
// Any thread may use everything here.
#pragma once

#include "Foundation/Base/Clock.h"
#include "Foundation/Base/Object.h"
#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace NS {

inline constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;

// Now plus a number of nanoseconds; a negative number makes a deadline that has
// passed. A sum beyond the clock's range is the end of time.
MonotonicTime dispatchTime(std::int64_t nanoseconds);
WallTime dispatchWallTime(std::int64_t nanoseconds);

// Counts entries that have not left yet; a wait ends when the count is 0.
class DispatchGroup : public Object {
public:
  static std::shared_ptr<DispatchGroup> create();

  virtual void enter() = 0;
  // A leave without an enter is the caller's mistake: it is logged and has no
  // other effect.
  virtual void leave() = 0;

  // True when the count is or becomes 0, at once if it is. False when the
  // deadline came first. With a deadline that has passed the call does not
  // block.
  virtual void wait() = 0;
  virtual bool wait(MonotonicTime deadline) = 0;
  virtual bool wait(WallTime deadline) = 0;

  // The number of entries that have not left yet.
  virtual std::uint64_t count() const = 0;
};

// Lets a block run once in the life of the token; other callers wait until it
// has. A block that throws counts as not run.
using DispatchOnceToken = std::once_flag;
template <typename Block> void dispatchOnce(DispatchOnceToken &token, Block &&block) {
  std::call_once(token, std::forward<Block>(block));
}

// Runs blocks on threads of its own, several at a time, in no promised order.
class DispatchQueue : public SharedInstance<DispatchQueue> {
public:
  virtual ~DispatchQueue() = default;
  // The process's queue for work without a waiting user.
  static DispatchQueue &backgroundQueue() { return shared(); }
  static DispatchQueue &real();

  // Never blocks. Logs an exception that leaves the block, and stops it there.
  // Raises InternalInconsistencyException, and drops the block, when not even
  // one thread can be made.
  virtual void async(std::function<void()> block) = 0;
};

} // namespace NS
