// A child process of this one until it has been reaped, and the one thread that
// reaps every child as it ends. Internal to Foundation.
//
// Thread-safe. The thread waits only for the children adopted here, each by its
// own identifier: other parts of the process may have children too.
#pragma once

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

namespace NS {

struct ChildOutcome {
  bool signalled = false;
  // The exit status or the signal's number; -1 when it is unknown, because
  // other code has reaped the child.
  int status = -1;
};

class ChildProcess {
public:
  using Clock = std::chrono::steady_clock;

  // Call it before the child is adopted.
  void setIdentifier(int identifier) { identifier_ = identifier; }
  int identifier() const { return identifier_; }
  // The time at which the reaping thread kills it; call it before the child is
  // adopted.
  void setDeadline(Clock::time_point deadline) { deadline_ = deadline; }
  std::optional<Clock::time_point> deadline() const { return deadline_; }

  // Its outcome; empty while it runs. Reaps it when it has ended and is not
  // reaped yet; never blocks.
  std::optional<ChildOutcome> outcome();
  // Blocks until the child is reaped, by any thread.
  void waitUntilEnd();
  // Does nothing to a child that has ended: until it is reaped here its
  // identifier is its own, and afterwards no process gets a signal.
  void kill();
  // Makes a descriptor that polls as readable once the child has ended. Empty when
  // the child has ended already, and when the host cannot make one.
  Descriptor openExitDescriptor();

  // The reaping thread's own: the exit descriptor, and whether the deadline was
  // enforced.
  Descriptor exitDescriptor;
  bool wasKilled = false;

private:
  // With the lock held.
  void look();

  int identifier_ = 0;
  std::optional<Clock::time_point> deadline_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::optional<ChildOutcome> outcome_;
};

// For poll: 0 once the time is up.
int millisecondsUntil(ChildProcess::Clock::time_point end);

// A list of one child. The reaping thread takes over its node, so that adopting a
// child that already runs needs no memory.
using ChildSlot = std::list<std::shared_ptr<ChildProcess>>;

// Starts the reaping thread. Throws ResourceShortage when that fails; afterwards
// every child can be adopted.
void prepareToAdopt();
// Passes a running child to the reaping thread.
void adopt(ChildSlot slot) noexcept;

} // namespace NS
