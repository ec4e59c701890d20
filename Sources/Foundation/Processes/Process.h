// The end of this process. A class, so that a test can observe an end and
// survive it.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <functional>

namespace NS {

class Process : public SharedInstance<Process> {
public:
  virtual ~Process() = default;
  static Process &real();

  // Ends the process at once, in the middle of other threads' work. It calls
  // the hooks, then waits for nothing and runs no destructor. Does not return,
  // unless a test replaced it.
  virtual void exit(int status) = 0;
  // Adds a hook for exit to call first. It must return soon and not throw. Any
  // thread may add one.
  virtual void beforeExit(std::function<void()> hook) = 0;

  // Afterwards the signals by which a supervisor ends a service end this
  // process with status 0, and a write to a pipe without a reader fails. Every
  // other signal has its default action and is unblocked, even if the parent
  // process ignored or blocked it: an ignored SIGCHLD would lose the status of
  // every program that this process runs. Call it at the start of the process,
  // before it has other threads.
  virtual void installSignalDispositions() = 0;
};

} // namespace NS
