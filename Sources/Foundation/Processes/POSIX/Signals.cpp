// Blocks the signals in all threads, and takes them in one thread with sigwait.
#include "Foundation/Processes/Signals.h"

#include <atomic>
#include <csignal>
#include <thread>
#include <unistd.h>
#include <utility>

namespace NS {

static_assert(HangUpSignal == SIGHUP && InterruptSignal == SIGINT && TerminateSignal == SIGTERM);

class SignalWatch::Body {
public:
  Body(const std::vector<int> &signals, Handler handler) : handler_(std::move(handler)) {
    sigemptyset(&watched_); // a macro on some hosts, as is sigaddset
    for (int signal : signals)
      if (!isIgnored(signal))
        add(signal);
    if (wake_ == 0)
      return;
    ::pthread_sigmask(SIG_BLOCK, &watched_, nullptr);
    thread_ = std::thread([this] { watch(); });
  }

  ~Body() {
    if (!thread_.joinable())
      return;
    ending_ = true;
    ::pthread_kill(thread_.native_handle(), wake_);
    thread_.join();
  }

private:
  static bool isIgnored(int signal) {
    struct sigaction action {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
  }

  void add(int signal) {
    sigaddset(&watched_, signal);
    wake_ = signal;
  }

  void watch() {
    for (int signal = 0; ::sigwait(&watched_, &signal) == 0 && !ending_;)
      handler_(signal);
  }

  const Handler handler_;
  sigset_t watched_{};
  int wake_ = 0; // one of them, 0 when there is none
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

SignalWatch::SignalWatch(const std::vector<int> &signals, Handler handler)
    : body_(std::make_unique<Body>(signals, std::move(handler))) {}

SignalWatch::~SignalWatch() = default;

void leaveAtOnce(int status) {
  ::_exit(status);
}

} // namespace NS
