// Pipes and child processes, apart from the calls in which the hosts differ.
#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Internal/EnvironmentLock.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Descriptors/Internal/Descriptors.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Descriptors/POSIX/DescriptorLimit.h"
#include "Foundation/Descriptors/POSIX/HostDescriptors.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <shared_mutex>
#include <spawn.h>
#include <system_error>
#include <unistd.h>

namespace NS::descriptors {
namespace {

[[noreturn]] void raiseNoPipe() {
  int cause = errno;
  std::string reason = "pipe: " + std::generic_category().message(cause);
  if (isExhaustion(cause))
    throw ResourceShortage(reason);
  throw Exception(InternalInconsistencyException, reason);
}

// Moves a descriptor above the standard streams. In the place of a closed
// standard stream it would be lost to the child's own streams.
Descriptor aboveStandardStreams(Descriptor descriptor) {
  if (descriptor.get() > STDERR_FILENO)
    return descriptor;
  return Descriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

class SpawnActions {
public:
  SpawnActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions &) = delete;
  SpawnActions &operator=(const SpawnActions &) = delete;

  int connect(const int (&streams)[3]) {
    for (int target : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
      if (streams[target] >= 0)
        if (int failure = ::posix_spawn_file_actions_adddup2(&actions_, streams[target], target))
          return failure;
    return host::keepStandardStreamsAlone(actions_, streams);
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

  // Gives the program the default signal settings, as a shell does: this process
  // ignores SIGPIPE, but a tool must end when its reader is gone.
  int resetSignals() {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    // Some hosts refuse a list with signals that cannot be caught.
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    return ::posix_spawnattr_setflags(
        &attributes_,
        static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | host::spawnFlags()));
  }
  const posix_spawnattr_t *get() const { return &attributes_; }

private:
  posix_spawnattr_t attributes_;
};

// Makes a pipe of two descriptors. Raises when one is missing, with the reason
// in errno.
PipeEnds pipeOf(Descriptor first, Descriptor second) {
  if (!first || !second)
    raiseNoPipe();
  Descriptor reading = aboveStandardStreams(std::move(first));
  if (!reading)
    raiseNoPipe();
  Descriptor writing = aboveStandardStreams(std::move(second));
  if (!writing)
    raiseNoPipe();
  return {reading.release(), writing.release()};
}

} // namespace

PipeEnds openPipe() {
  int ends[2];
  if (host::makePipe(ends) != 0)
    raiseNoPipe();
  return pipeOf(Descriptor(ends[0]), Descriptor(ends[1]));
}

PipeEnds openNullDevice() {
  return pipeOf(Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)),
                Descriptor(::open("/dev/null", O_WRONLY | O_CLOEXEC)));
}

int spawn(const Program &program, int &processIdentifier) {
  SpawnActions actions;
  SpawnAttributes attributes;
  if (int failure = actions.connect(program.standardStreams))
    return failure;
  if (int failure = attributes.resetSignals())
    return failure;
  std::vector<char *> arguments;
  for (const std::string &argument : program.arguments)
    arguments.push_back(const_cast<char *>(argument.c_str()));
  arguments.push_back(nullptr);
  std::shared_lock environment(environmentLock());
  int failure = ::posix_spawn(&processIdentifier, program.path.c_str(), actions.get(),
                              attributes.get(), arguments.data(), host::environment());
  environment.unlock();
  if (failure == 0)
    if (std::optional<rlimit> former = limitBeforeRaising())
      host::setDescriptorLimit(processIdentifier, *former);
  return failure;
}

} // namespace NS::descriptors
