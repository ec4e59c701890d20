// Signals as events: a thread waits for them, so that what they lead to may
// lock, allocate and write like any other code.
#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace NS {

inline constexpr int InterruptSignal = 2;  // ^C
inline constexpr int TerminateSignal = 15; // asked to end

// For its life the signals come here instead of ending the process. Those that
// the process was started with as ignored stay ignored. To be made before any
// other thread, and while none of the signals has another handler.
class SignalWatch {
public:
  // Called on a thread of its own, one signal after the other.
  using Handler = std::function<void(int signal)>;

  SignalWatch(const std::vector<int> &signals, Handler handler);
  // Waits for a handler that runs. The signals stay blocked, so that one that
  // comes while the process ends does not change its exit status.
  ~SignalWatch();
  SignalWatch(const SignalWatch &) = delete;
  SignalWatch &operator=(const SignalWatch &) = delete;

private:
  class Body;
  std::unique_ptr<Body> body_;
};

// Ends the process with this status, leaving everything as it is.
[[noreturn]] void leaveAtOnce(int status);

} // namespace NS
