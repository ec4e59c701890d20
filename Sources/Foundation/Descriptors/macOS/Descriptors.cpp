// Pipes and child processes by the calls that only this host has. A pipe
// cannot be made close-on-exec in one step here, so every child is started
// with all descriptors closed but those that it is given.
#include "Foundation/Descriptors/Internal/Descriptors.h"

#include "Foundation/Descriptors/POSIX/HostDescriptors.h"

#include <cerrno>
#include <crt_externs.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/event.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS::descriptors {

// This host has no descriptor that refers to an item without opening it. So an
// item that takes the place of the checked one between the calls is opened, even
// a device or a FIFO.
int openFileOrFolder(const char *path, int flags) {
  struct stat status;
  if (::stat(path, &status) != 0)
    return -1;
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    errno = EOPNOTSUPP;
    return -1;
  }
  return ::open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

int openExitDescriptor(int processIdentifier) {
  // An event queue can be polled like any descriptor.
  int queue = ::kqueue();
  if (queue < 0)
    return -1;
  ::fcntl(queue, F_SETFD, FD_CLOEXEC);
  struct kevent change;
  EV_SET(&change, static_cast<uintptr_t>(processIdentifier), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0,
         nullptr);
  if (::kevent(queue, &change, 1, nullptr, 0, nullptr) == 0)
    return queue;
  ::close(queue); // a child that has ended already cannot be watched
  return -1;
}

namespace host {

int makePipe(int (&ends)[2]) {
  if (::pipe(ends) != 0)
    return -1;
  for (int end : ends)
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return 0;
}

int keepStandardStreamsAlone(posix_spawn_file_actions_t &actions, const int (&streams)[3]) {
  for (int stream = 0; stream < 3; ++stream)
    if (streams[stream] < 0 && ::fcntl(stream, F_GETFD) >= 0)
      if (int failure = ::posix_spawn_file_actions_addinherit_np(&actions, stream))
        return failure;
  return 0;
}

short spawnFlags() {
  return POSIX_SPAWN_CLOEXEC_DEFAULT;
}

// No process can set another's limits here.
void setDescriptorLimit(pid_t /*child*/, const rlimit & /*limit*/) {}

char **environment() {
  return *_NSGetEnviron();
}

} // namespace host

} // namespace NS::descriptors
