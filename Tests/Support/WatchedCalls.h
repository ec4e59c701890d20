// Lets something happen just before a system call or in its place, for a forked
// child.
#pragma once

#include "Support/Sanitizers.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <future>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <optional>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kwtest {

// The arguments of a call of this process.
class CallArguments {
public:
  explicit CallArguments(const seccomp_data &call) : call_(call) {}
  bool isOf(unsigned number) const { return call_.nr == static_cast<int>(number); }
  __u64 operator[](std::size_t place) const { return call_.args[place]; }
  // The argument at this place, which is a text.
  std::string text(std::size_t place) const {
    return reinterpret_cast<const char *>(call_.args[place]);
  }

private:
  const seccomp_data &call_;
};

// Makes each call of these numbers wait for an answer. Returns the descriptor of
// those that wait, -1 when the system cannot do so.
inline int makeCallsWait(const std::vector<unsigned> &numbers) {
  std::vector<sock_filter> rules{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (unsigned number : numbers) {
    rules.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1));
    rules.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  }
  rules.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  sock_fprog program{static_cast<unsigned short>(rules.size()), rules.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
    return -1;
  return static_cast<int>(
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

template <typename Hook> std::optional<long> answer(Hook &hook, const CallArguments &call) {
  WhileTheOtherThreadIsHeld held;
  return hook(call);
}

// From now on the hook runs before each call of these numbers by this thread and
// by those that it starts. The call has the result that the hook returns, a
// negative errno value for a failure; it is made if the hook returns none. The hook
// runs on a thread of its own, whose calls do not count. Only for a forked child,
// and once.
template <typename Hook> bool answerCalls(const std::vector<unsigned> &numbers, Hook hook) {
  std::promise<int> promised;
  std::thread([future = promised.get_future(), hook = std::move(hook)]() mutable {
    int listener = future.get();
    while (listener >= 0) {
      seccomp_notif call{};
      if (::ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0) {
        if (errno == EINTR || errno == ENOENT) // a signal, or the caller has ended
          continue;
        return;
      }
      std::optional<long> result = answer(hook, CallArguments(call.data));
      seccomp_notif_resp response{call.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
      if (result)
        response = {call.id, std::max(*result, 0L), static_cast<__s32>(std::min(*result, 0L)), 0};
      ::ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
    }
  }).detach();
  int listener = makeCallsWait(numbers);
  promised.set_value(listener);
  return listener >= 0;
}

// The same for a hook that tells whether it did the call's work.
template <typename Hook> bool inPlaceOfCalls(const std::vector<unsigned> &numbers, Hook hook) {
  return answerCalls(numbers, [hook = std::move(hook)](const CallArguments &call) mutable {
    return hook(call) ? std::optional(0L) : std::nullopt;
  });
}

// The same for a hook after which each call goes on.
template <typename Hook> bool beforeCalls(const std::vector<unsigned> &numbers, Hook hook) {
  return inPlaceOfCalls(numbers, [hook = std::move(hook)](const CallArguments &call) mutable {
    hook(call);
    return false;
  });
}
template <typename Hook> bool beforeCalls(unsigned number, Hook hook) {
  return beforeCalls(std::vector{number}, std::move(hook));
}

} // namespace kwtest
