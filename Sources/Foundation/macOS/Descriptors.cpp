// Pipes and child processes by the calls that only this host has. A pipe
// cannot be made close-on-exec in one step here, so every child is started
// with all descriptors closed but those that it is given.
#include "Foundation/POSIX/Descriptors.h"

#include "Foundation/Exception.h"

#include <cerrno>
#include <crt_externs.h>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/event.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS::descriptors {
namespace {

// A descriptor that took the place of a closed standard stream would be lost
// to the child's own streams: moves it above them.
int privateDescriptor(int descriptor) {
  if (descriptor > STDERR_FILENO) {
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return descriptor;
  }
  int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  int saved = errno;
  ::close(descriptor);
  errno = saved;
  return moved;
}

class SpawnActions {
public:
  SpawnActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions &) = delete;
  SpawnActions &operator=(const SpawnActions &) = delete;

  int connect(const int (&streams)[3]) {
    for (int target = 0; target < 3; ++target) {
      int failure = 0;
      if (streams[target] >= 0)
        failure = ::posix_spawn_file_actions_adddup2(&actions_, streams[target], target);
      else if (::fcntl(target, F_GETFD) >= 0)
        failure = ::posix_spawn_file_actions_addinherit_np(&actions_, target);
      if (failure)
        return failure;
    }
    return 0;
  }
  const posix_spawn_file_actions_t *get() const { return &actions_; }

private:
  posix_spawn_file_actions_t actions_;
};

class SpawnAttributes {
public:
  SpawnAttributes() { ::posix_spawnattr_init(&attributes_); }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes &) = delete;
  SpawnAttributes &operator=(const SpawnAttributes &) = delete;

  // A tool must meet a gone reader as it would when started from a shell,
  // whatever this process ignores or blocks.
  int reset() {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    return ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                        POSIX_SPAWN_CLOEXEC_DEFAULT);
  }
  const posix_spawnattr_t *get() const { return &attributes_; }

private:
  posix_spawnattr_t attributes_;
};

} // namespace

// Nothing can stand for an item here without opening it; what is exchanged for
// a device between the two calls is opened.
int openUnlessDevice(const char *path, int flags) {
  struct stat status;
  if (::stat(path, &status) != 0)
    return -1;
  if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
    errno = EOPNOTSUPP;
    return -1;
  }
  return ::open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

PipeEnds openPipe() {
  int ends[2];
  if (::pipe(ends) != 0)
    throw Exception(InternalInconsistencyException, std::string("pipe: ") + std::strerror(errno));
  PipeEnds pipe{privateDescriptor(ends[0]), privateDescriptor(ends[1])};
  if (pipe.reading < 0 || pipe.writing < 0) {
    int saved = errno;
    for (int end : {pipe.reading, pipe.writing})
      if (end >= 0)
        ::close(end);
    throw Exception(InternalInconsistencyException, std::string("pipe: ") + std::strerror(saved));
  }
  return pipe;
}

int spawn(const Program &program, int &processIdentifier) {
  SpawnActions actions;
  SpawnAttributes attributes;
  if (int failure = actions.connect(program.standardStreams))
    return failure;
  if (int failure = attributes.reset())
    return failure;
  std::vector<char *> arguments;
  arguments.reserve(program.arguments.size() + 1);
  for (const std::string &argument : program.arguments)
    arguments.push_back(const_cast<char *>(argument.c_str()));
  arguments.push_back(nullptr);
  return ::posix_spawn(&processIdentifier, program.path.c_str(), actions.get(), attributes.get(),
                       arguments.data(), *_NSGetEnviron());
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

} // namespace NS::descriptors
