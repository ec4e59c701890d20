// A system that refuses a call, for a forked child.
#pragma once

#include "Support/ForkedChild.h"
#include "Support/LogRecorder.h"

#include <cerrno>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace kwtest {

// From now on each call of this number fails; with a place of an argument, only
// calls that have not 0 there. Only for a forked child.
inline bool refuseCalls(unsigned number, int errnum, int argument = -1) {
  auto error = SECCOMP_RET_ERRNO | static_cast<unsigned>(errnum);
  auto place = offsetof(seccomp_data, args) + sizeof(__u64) * static_cast<unsigned>(argument);
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS,
               static_cast<unsigned>(argument < 0 ? offsetof(seccomp_data, arch) : place)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, error),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog program{sizeof rules / sizeof *rules, rules};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// From now on no volume can rename without replacing, as some of networks.
inline bool refuseExclusiveRenames() {
  constexpr int flags = 4;
  return refuseCalls(SYS_renameat2, EINVAL, flags);
}

// From now on no folder can be listed, as on a device that breaks.
inline bool refuseListings() {
  return refuseCalls(SYS_getdents64, EIO);
}

// Runs the body in a forked child where no folder can be listed. Returns the one
// line of the log, or the failure that the body returned, or a sentence.
template <typename Body> std::string lineWithoutListings(Body body) {
  return inForkedChild([&]() -> std::string {
    if (!refuseListings())
      return "listings still work";
    LogRecorder log;
    if (std::string failure = body(); !failure.empty())
      return failure;
    return log.lines().size() == 1 ? log.lines()[0] : "not one line";
  });
}

} // namespace kwtest
