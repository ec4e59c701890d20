// Pipes and child processes by the calls that only this host has.
#include "Foundation/Descriptors/Internal/Descriptors.h"

#include "Foundation/Descriptors/Linux/HandlePath.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Descriptors/POSIX/HostDescriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace NS::descriptors {

// A descriptor by O_PATH refers to the item without opening it. The check and
// the open both go through it, so that they mean the same item.
int openFileOrFolder(const char *path, int flags) {
  Descriptor handle(::open(path, O_PATH | O_CLOEXEC));
  struct stat status;
  if (!handle || ::fstat(handle.get(), &status) != 0)
    return -1;
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    errno = EOPNOTSUPP;
    return -1;
  }
  return ::open(handlePath(handle.get()).c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

int openExitDescriptor(int processIdentifier) {
  // The call itself makes it close-on-exec.
  return static_cast<int>(::syscall(SYS_pidfd_open, processIdentifier, 0));
}

namespace host {

int makePipe(int (&ends)[2]) {
  return ::pipe2(ends, O_CLOEXEC);
}

int keepStandardStreamsAlone(posix_spawn_file_actions_t &actions, const int (&)[3]) {
  // Our own descriptors are all close-on-exec; this closes those of libraries.
  return ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

short spawnFlags() {
  return 0;
}

void setDescriptorLimit(pid_t child, const rlimit &limit) {
  // The call may fail for a child that has ended already, which needs no limit.
  static_cast<void>(::prlimit(child, RLIMIT_NOFILE, &limit, nullptr));
}

char **environment() {
  return environ;
}

} // namespace host

} // namespace NS::descriptors
