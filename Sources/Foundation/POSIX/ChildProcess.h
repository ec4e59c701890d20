// A child process of this one until it has been reaped, and the one thread
// that reaps every child as it ends. Not for use above the seam.
//
// Thread-safe. Only the children adopted here are ever waited for, each by its
// own identifier: other parts of the process may have children too.
#pragma once

#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

namespace NS {

struct ChildOutcome {
  bool signalled = false;
  // The exit status or the signal's number; -1 when it cannot be known,
  // because somebody else has reaped the child.
  int status = -1;
};

class ChildProcess {
public:
  // Before the child is adopted.
  void setIdentifier(int identifier) { identifier_ = identifier; }
  int identifier() const { return identifier_; }

  // How it ended, nothing while it runs. Reaps it when it has ended and nobody
  // has yet; never blocks.
  std::optional<ChildOutcome> outcome();
  void waitUntilEnd();

  // The reaping thread's own: readable once the child has ended; -1 for a
  // child that must be asked.
  int exitDescriptor = -1;

private:
  int identifier_ = 0;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::optional<ChildOutcome> outcome_;
};

// A one-element list, so that adopting a child that runs already cannot fail.
using ChildSlot = std::list<std::shared_ptr<ChildProcess>>;

// Readies the reaping thread. Raises InternalInconsistencyException when it
// cannot be had; afterwards every child can be adopted.
void prepareToAdopt();
// Hands a running child to the reaping thread.
void adopt(ChildSlot slot) noexcept;

} // namespace NS
