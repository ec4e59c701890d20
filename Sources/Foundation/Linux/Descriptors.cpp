// Pipes and child processes by the calls that only this host has.
#include "Foundation/POSIX/Descriptors.h"

#include "Foundation/Exception.h"
#include "Foundation/POSIX/Descriptor.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace NS::descriptors {
namespace {

// A descriptor that took the place of a closed standard stream would be lost
// to the child's own streams: moves it above them.
int aboveStandardStreams(int descriptor) {
  if (descriptor > STDERR_FILENO)
    return descriptor;
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
    for (int target = 0; target < 3; ++target)
      if (streams[target] >= 0)
        if (int failure = ::posix_spawn_file_actions_adddup2(&actions_, streams[target], target))
          return failure;
    // Every descriptor of ours is close-on-exec; this is for those of others
    // in the process.
    return ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
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
  int resetSignals() {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    return ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  const posix_spawnattr_t *get() const { return &attributes_; }

private:
  posix_spawnattr_t attributes_;
};

} // namespace

// The item is held by a handle that has not opened it while it is looked at,
// so that nothing can take its place in between.
int openUnlessDevice(const char *path, int flags) {
  Descriptor handle(::open(path, O_PATH | O_CLOEXEC));
  struct stat status;
  if (!handle || ::fstat(handle.get(), &status) != 0)
    return -1;
  if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
    errno = EOPNOTSUPP;
    return -1;
  }
  std::string link = "/proc/self/fd/" + std::to_string(handle.get());
  return ::open(link.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

PipeEnds openPipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0)
    throw Exception(InternalInconsistencyException, std::string("pipe: ") + std::strerror(errno));
  PipeEnds pipe{aboveStandardStreams(ends[0]), aboveStandardStreams(ends[1])};
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
  if (int failure = attributes.resetSignals())
    return failure;
  std::vector<char *> arguments;
  arguments.reserve(program.arguments.size() + 1);
  for (const std::string &argument : program.arguments)
    arguments.push_back(const_cast<char *>(argument.c_str()));
  arguments.push_back(nullptr);
  return ::posix_spawn(&processIdentifier, program.path.c_str(), actions.get(), attributes.get(),
                       arguments.data(), environ);
}

int openExitDescriptor(int processIdentifier) {
  // Close-on-exec by the call's own promise.
  return static_cast<int>(::syscall(SYS_pidfd_open, processIdentifier, 0));
}

} // namespace NS::descriptors
