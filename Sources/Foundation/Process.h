// This process as a whole: how it ends. A class, so that a test can watch an
// end without dying of it.
#pragma once

#include <functional>

namespace NS {

class Process {
public:
  virtual ~Process() = default;
  static Process &shared();
  static Process *exchangeShared(Process *replacement);

  // Ends the process at once, whatever other threads are doing: after the
  // hooks, nothing is waited for and no destructor runs. Does not return,
  // unless a test replaced it.
  virtual void exit(int status) = 0;
  // Adds a hook for exit to call first. It must return soon and not throw.
  virtual void beforeExit(std::function<void()> hook) = 0;

  // From now on the signals by which a supervisor ends a service end this
  // process with status 0, and writing to a pipe that nobody reads is an error
  // of the write. Every other signal is treated by default and blocked by
  // nobody, whatever the process that started this one ignored or blocked: an
  // ignored SIGCHLD would lose the status of every program that is run. For the
  // start of the process, before it has other threads.
  virtual void installSignalDispositions() = 0;
};

} // namespace NS
