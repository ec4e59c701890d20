// Lets something happen just before a system call, for a forked child.
#pragma once

#include <cstddef>
#include <future>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace kwtest {

// The arguments of a call of this process.
class CallArguments {
public:
  explicit CallArguments(const seccomp_data &call) : call_(call) {}
  // The argument at this place, which is a text.
  std::string text(std::size_t place) const {
    return reinterpret_cast<const char *>(call_.args[place]);
  }

private:
  const seccomp_data &call_;
};

// Makes each call of this number wait for an answer. Returns the descriptor of
// those that wait, -1 when the system cannot do so.
inline int makeCallsWait(unsigned number) {
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog program{sizeof rules / sizeof *rules, rules};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
    return -1;
  return static_cast<int>(
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

// From now on the hook runs before each call of this number by this thread and
// by those that it starts, and then the call goes on. The hook runs on a thread
// of its own, whose calls do not count. Only for a forked child.
template <typename Hook> bool beforeCalls(unsigned number, Hook hook) {
  std::promise<int> promised;
  std::thread([future = promised.get_future(), hook = std::move(hook)]() mutable {
    int listener = future.get();
    seccomp_notif call{};
    while (listener >= 0 && ::ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &call) == 0) {
      hook(CallArguments(call.data));
      seccomp_notif_resp answer{call.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
      ::ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
      call = {};
    }
  }).detach();
  int listener = makeCallsWait(number);
  promised.set_value(listener);
  return listener >= 0;
}

} // namespace kwtest
