// Signals as events: a thread waits for them, so that their handler may lock,
// allocate and write like any other code.
#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace NS {

inline constexpr int HangUpSignal = 1;     // the terminal is gone
inline constexpr int InterruptSignal = 2;  // ^C
inline constexpr int TerminateSignal = 15; // a request to end

// During its life the signals arrive here instead of ending the process.
// Signals that the process inherited as ignored stay ignored. Make it before
// any other thread, and while none of the signals has another handler.
class SignalWatch {
public:
  // Called on a thread of its own, for one signal after the other. Must not
  // throw.
  using Handler = std::function<void(int signal)>;

  // Raises std::system_error, with the signals blocked, when there is no thread.
  SignalWatch(const std::vector<int> &signals, Handler handler);
  // Waits for a running handler. The signals stay blocked, so that one that
  // comes while the process ends does not change its exit status.
  ~SignalWatch();
  SignalWatch(const SignalWatch &) = delete;
  SignalWatch &operator=(const SignalWatch &) = delete;

private:
  class Body;
  std::unique_ptr<Body> body_;
};

// Ends the process with this status without any clean-up.
[[noreturn]] void leaveAtOnce(int status);

} // namespace NS
