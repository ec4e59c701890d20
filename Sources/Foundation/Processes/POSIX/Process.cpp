// The end of this process.
#include "Foundation/Processes/Process.h"

#include <csignal>
#include <mutex>
#include <unistd.h>
#include <utility>
#include <vector>

namespace NS {
namespace {

extern "C" void endWithSuccess(int) {
  ::_exit(0);
}

// Resets the ignored and the blocked signals that this process inherited. Leaves
// handlers alone: no process inherits them, so code of this one installed them.
void forgetInheritedSignals() {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action;
    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
      static_cast<void>(std::signal(signal, SIG_DFL));
  }
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

class ThisProcess final : public Process {
public:
  void exit(int status) override {
    for (const auto &hook : takeHooks())
      hook();
    // Other requests may still be running. A normal exit would destroy objects
    // that they use.
    ::_exit(status);
  }

  void beforeExit(std::function<void()> hook) override {
    std::lock_guard lock(mutex_);
    hooks_.push_back(std::move(hook));
  }

  void installSignalDispositions() override {
    forgetInheritedSignals();
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = endWithSuccess;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
  }

private:
  // The hooks run outside the lock, so that two threads that end the process at
  // once do not wait for each other's hooks.
  std::vector<std::function<void()>> takeHooks() {
    std::lock_guard lock(mutex_);
    return std::exchange(hooks_, {});
  }

  std::mutex mutex_;
  std::vector<std::function<void()>> hooks_;
};

} // namespace

Process &Process::real() {
  return lastingInstance<ThisProcess>();
}

} // namespace NS
