// Loaded into the agent before the C library (LD_PRELOAD): counts the calls
// that touch files, folders, pipes, processes, threads, time and the bus while
// a test has it armed, notes their names, and has one of them fail, do half of
// its work or end the process just before it. It counts allocations by
// operator new as well, and has one of them fail.
//
// The test and the library share a mapped file, named by KEEPWELL_FAULTS: see
// Control.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <new>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr std::size_t mostNames = 65536;
constexpr int halfOfIt = -1; // in place of an error: half of the bytes
constexpr int endOfProcess = -2;

enum class Threads : std::uint32_t { OfRequests, OfTheBus };

struct Control {
  std::atomic<std::uint32_t> armed;
  std::atomic<std::uint32_t> count;  // of calls since it was armed
  std::atomic<std::uint32_t> failAt; // from one; zero: none
  std::atomic<std::int32_t> error;
  std::atomic<std::uint32_t> alike;       // how many of the calls bear the name below
  std::atomic<std::uint32_t> allocations; // of the threads below
  std::atomic<std::uint32_t> allocationToFail;
  std::atomic<Threads> threads;
  char onlyName[16];         // calls of another name do not count for failAt; empty: all do
  char names[mostNames][16]; // of the calls, in order
};

Control *control = nullptr;

// The thread that talks to the bus handles the requests of all.
__attribute__((tls_model("initial-exec"))) thread_local bool isThreadOfBus = false;

template <typename Function> Function next(const char *name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

__attribute__((constructor)) void open() {
  const char *path = std::getenv("KEEPWELL_FAULTS");
  // Calls of the agent's tools must not count.
  ::unsetenv("LD_PRELOAD");
  if (!path)
    return;
  int file = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0));
  if (file < 0)
    return;
  void *mapped = ::mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::syscall(SYS_close, file);
  if (mapped != MAP_FAILED)
    control = static_cast<Control *>(mapped);
}

// The fate of this call: 0, an error, or one of the above.
int faultOf(const char *name) {
  if (!control || !control->armed)
    return 0;
  std::uint32_t number = ++control->count;
  if (number <= mostNames)
    std::strncpy(control->names[number - 1], name, sizeof control->names[0] - 1);
  if (control->onlyName[0] && std::strcmp(name, control->onlyName) != 0)
    return 0;
  if ((control->onlyName[0] ? ++control->alike : number) != control->failAt)
    return 0;
  int error = control->error;
  if (error == endOfProcess)
    ::syscall(SYS_kill, ::syscall(SYS_getpid), SIGKILL);
  return error;
}

// For bytes through files and through pipes; the bus and the run loop read and
// write too, but through neither.
int faultOfBytes(const char *name, const char *nameForPipes, int descriptor) {
  struct stat status;
  if (::syscall(SYS_fstat, descriptor, &status) != 0 || S_ISREG(status.st_mode))
    return faultOf(name);
  return S_ISFIFO(status.st_mode) ? faultOf(nameForPipes) : 0;
}

bool isRegular(int descriptor) {
  struct stat status;
  return ::syscall(SYS_fstat, descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

// The beginning of a message that holds half of its bytes.
constexpr std::size_t mostParts = 64;
struct Half {
  explicit Half(const struct msghdr &whole) : message(whole) {
    std::size_t length = 0;
    for (std::size_t index = 0; index < whole.msg_iovlen; ++index)
      length += whole.msg_iov[index].iov_len;
    length = (length + 1) / 2;
    message.msg_iov = parts;
    message.msg_iovlen = 0;
    for (; length > 0 && message.msg_iovlen < mostParts; ++message.msg_iovlen) {
      struct iovec &part = parts[message.msg_iovlen];
      part = whole.msg_iov[message.msg_iovlen];
      part.iov_len = part.iov_len < length ? part.iov_len : length;
      length -= part.iov_len;
    }
  }
  struct msghdr message;
  struct iovec parts[mostParts];
};

template <typename Result> Result failed() {
  if constexpr (std::is_pointer_v<Result>)
    return nullptr;
  else
    return static_cast<Result>(-1);
}

} // namespace

// The macros need parameter lists without parentheses of their own.
// NOLINTBEGIN(bugprone-macro-parentheses)

// A call of the C library under its own name. Some are there twice.
#define SHIM_AS(reported, result, name, parameters, arguments)                                     \
  extern "C" __attribute__((visibility("default"))) result shim_##name parameters __asm__(#name);  \
  extern "C" result shim_##name parameters {                                                       \
    static const auto real = next<result(*) parameters>(#name);                                    \
    if (int error = faultOf(reported); error > 0) {                                                \
      errno = error;                                                                               \
      return failed<result>();                                                                     \
    }                                                                                              \
    return real arguments;                                                                         \
  }
#define SHIM(result, name, parameters, arguments)                                                  \
  SHIM_AS(#name, result, name, parameters, arguments)
#define SHIM_BOTH(result, name, parameters, arguments)                                             \
  SHIM_AS(#name, result, name, parameters, arguments)                                              \
  SHIM_AS(#name, result, name##64, parameters, arguments)

// One that moves bytes: it may be told to move half of them.
#define SHIM_BYTES(name, descriptor, length, parameters, arguments)                                \
  extern "C" __attribute__((visibility("default"))) ssize_t shim_##name parameters __asm__(#name); \
  extern "C" ssize_t shim_##name parameters {                                                      \
    static const auto real = next<ssize_t(*) parameters>(#name);                                   \
    int error = faultOfBytes(#name, #name "-pipe", descriptor);                                    \
    if (error == halfOfIt)                                                                         \
      length = (length + 1) / 2;                                                                   \
    if (error <= 0)                                                                                \
      return real arguments;                                                                       \
    errno = error;                                                                                 \
    return -1;                                                                                     \
  }

SHIM_BOTH(int, open, (const char *path, int flags, mode_t mode), (path, flags, mode))
SHIM_BOTH(int, openat, (int folder, const char *path, int flags, mode_t mode),
          (folder, path, flags, mode))
SHIM_AS("open", int, __open_2, (const char *path, int flags), (path, flags))
SHIM_AS("open", int, __open64_2, (const char *path, int flags), (path, flags))
SHIM_AS("openat", int, __openat_2, (int folder, const char *path, int flags), (folder, path, flags))
SHIM_AS("openat", int, __openat64_2, (int folder, const char *path, int flags),
        (folder, path, flags))
SHIM_BOTH(int, stat, (const char *path, struct stat *status), (path, status))
SHIM_BOTH(int, lstat, (const char *path, struct stat *status), (path, status))
SHIM_BOTH(int, fstat, (int descriptor, struct stat *status), (descriptor, status))
SHIM_BOTH(int, fstatat, (int folder, const char *path, struct stat *status, int flags),
          (folder, path, status, flags))
SHIM(int, statx, (int folder, const char *path, int flags, unsigned mask, struct statx *status),
     (folder, path, flags, mask, status))
SHIM_BOTH(int, fstatvfs, (int descriptor, struct statvfs *volume), (descriptor, volume))
SHIM(int, access, (const char *path, int mode), (path, mode))
SHIM(int, faccessat, (int folder, const char *path, int mode, int flags),
     (folder, path, mode, flags))
SHIM(int, unlink, (const char *path), (path))
SHIM(int, unlinkat, (int folder, const char *path, int flags), (folder, path, flags))
SHIM(int, rmdir, (const char *path), (path))
SHIM(int, mkdir, (const char *path, mode_t mode), (path, mode))
SHIM(int, mkdirat, (int folder, const char *path, mode_t mode), (folder, path, mode))
SHIM(int, mknodat, (int folder, const char *path, mode_t mode, dev_t device),
     (folder, path, mode, device))
SHIM(int, symlinkat, (const char *target, int folder, const char *path), (target, folder, path))
SHIM(int, linkat, (int from, const char *path, int to, const char *target, int flags),
     (from, path, to, target, flags))
SHIM(int, rename, (const char *path, const char *target), (path, target))
SHIM(int, renameat, (int from, const char *path, int to, const char *target),
     (from, path, to, target))
SHIM(int, renameat2, (int from, const char *path, int to, const char *target, unsigned flags),
     (from, path, to, target, flags))
SHIM(ssize_t, readlink, (const char *path, char *target, std::size_t size), (path, target, size))
SHIM(ssize_t, readlinkat, (int folder, const char *path, char *target, std::size_t size),
     (folder, path, target, size))
SHIM(char *, realpath, (const char *path, char *resolved), (path, resolved))
SHIM(DIR *, opendir, (const char *path), (path))
SHIM_BOTH(struct dirent *, readdir, (DIR * folder), (folder))
SHIM(ssize_t, getdents64, (int folder, void *buffer, std::size_t size), (folder, buffer, size))
SHIM(int, fchmod, (int descriptor, mode_t mode), (descriptor, mode))
SHIM(int, chmod, (const char *path, mode_t mode), (path, mode))
SHIM(int, fchown, (int descriptor, uid_t owner, gid_t group), (descriptor, owner, group))
SHIM(int, fchownat, (int folder, const char *path, uid_t owner, gid_t group, int flags),
     (folder, path, owner, group, flags))
SHIM(int, utimensat, (int folder, const char *path, const struct timespec *times, int flags),
     (folder, path, times, flags))
SHIM(ssize_t, listxattr, (const char *path, char *names, std::size_t size), (path, names, size))
SHIM(ssize_t, llistxattr, (const char *path, char *names, std::size_t size), (path, names, size))
SHIM(ssize_t, getxattr, (const char *path, const char *name, void *value, std::size_t size),
     (path, name, value, size))
SHIM(int, setxattr,
     (const char *path, const char *name, const void *value, std::size_t size, int flags),
     (path, name, value, size, flags))
SHIM(int, removexattr, (const char *path, const char *name), (path, name))
SHIM(int, fsync, (int descriptor), (descriptor))
SHIM(int, fdatasync, (int descriptor), (descriptor))
SHIM(int, syncfs, (int descriptor), (descriptor))
SHIM_BOTH(int, ftruncate, (int descriptor, off_t length), (descriptor, length))
SHIM_BOTH(int, fallocate, (int descriptor, int mode, off_t offset, off_t length),
          (descriptor, mode, offset, length))
SHIM_BOTH(off_t, lseek, (int descriptor, off_t offset, int whence), (descriptor, offset, whence))
SHIM(int, flock, (int descriptor, int operation), (descriptor, operation))
SHIM(int, pipe2, (int *ends, int flags), (ends, flags))
SHIM(ssize_t, getrandom, (void *buffer, std::size_t size, unsigned flags), (buffer, size, flags))
SHIM(int, getentropy, (void *buffer, std::size_t size), (buffer, size))
SHIM(int, poll, (struct pollfd * waits, nfds_t count, int timeout), (waits, count, timeout))
SHIM(int, nanosleep, (const struct timespec *time, struct timespec *left), (time, left))
SHIM_AS("sched_affinity", int, sched_getaffinity, (pid_t thread, std::size_t size, cpu_set_t *set),
        (thread, size, set))
SHIM(pid_t, waitpid, (pid_t process, int *status, int options), (process, status, options))

SHIM_BYTES(read, descriptor, length, (int descriptor, void *buffer, std::size_t length),
           (descriptor, buffer, length))
SHIM_BYTES(write, descriptor, length, (int descriptor, const void *buffer, std::size_t length),
           (descriptor, buffer, length))
SHIM_BYTES(pread, descriptor, length,
           (int descriptor, void *buffer, std::size_t length, off_t offset),
           (descriptor, buffer, length, offset))
SHIM_BYTES(pwrite, descriptor, length,
           (int descriptor, const void *buffer, std::size_t length, off_t offset),
           (descriptor, buffer, length, offset))
SHIM_BYTES(pread64, descriptor, length,
           (int descriptor, void *buffer, std::size_t length, off_t offset),
           (descriptor, buffer, length, offset))
SHIM_BYTES(pwrite64, descriptor, length,
           (int descriptor, const void *buffer, std::size_t length, off_t offset),
           (descriptor, buffer, length, offset))
SHIM_BYTES(copy_file_range, source, length,
           (int source, off_t *from, int target, off_t *to, std::size_t length, unsigned flags),
           (source, from, target, to, length, flags))

// Those of variable arguments count for what files need of them alone.
#define SHIM_SELECTED(result, name, isCounted, reported, parameters, arguments)                    \
  extern "C" __attribute__((visibility("default"))) result shim_##name parameters __asm__(#name);  \
  extern "C" result shim_##name parameters {                                                       \
    static const auto real = next<result(*) parameters>(#name);                                    \
    if (int error = (isCounted) ? faultOf(reported) : 0; error > 0) {                              \
      errno = error;                                                                               \
      return failed<result>();                                                                     \
    }                                                                                              \
    return real arguments;                                                                         \
  }
SHIM_SELECTED(int, ioctl, request == FS_IOC_GETFLAGS || request == FS_IOC_SETFLAGS, "ioctl",
              (int descriptor, unsigned long request, void *argument),
              (descriptor, request, argument))
SHIM_SELECTED(int, fcntl, command == F_DUPFD_CLOEXEC, "dup",
              (int descriptor, int command, long value), (descriptor, command, value))
SHIM_SELECTED(int, fcntl64, command == F_DUPFD_CLOEXEC, "dup",
              (int descriptor, int command, long value), (descriptor, command, value))
SHIM_SELECTED(long, syscall, number == SYS_getdents64 || number == SYS_pidfd_open,
              number == SYS_getdents64 ? "getdents64" : "pidfd_open",
              (long number, long one, long two, long three, long four, long five, long six),
              (number, one, two, three, four, five, six))

// These give the error instead of setting it.
#define SHIM_GIVING(reported, name, parameters, arguments)                                         \
  extern "C" __attribute__((visibility("default"))) int shim_##name parameters __asm__(#name);     \
  extern "C" int shim_##name parameters {                                                          \
    static const auto real = next<int(*) parameters>(#name);                                       \
    int error = faultOf(reported);                                                                 \
    return error > 0 ? error : real arguments;                                                     \
  }
SHIM_GIVING("posix_spawn", posix_spawn,
            (pid_t * process, const char *path, const posix_spawn_file_actions_t *actions,
             const posix_spawnattr_t *attributes, char *const *arguments, char *const *environment),
            (process, path, actions, attributes, arguments, environment))
SHIM_GIVING("spawn_actions", posix_spawn_file_actions_adddup2,
            (posix_spawn_file_actions_t * actions, int from, int to), (actions, from, to))
SHIM_GIVING("spawn_actions", posix_spawn_file_actions_addclosefrom_np,
            (posix_spawn_file_actions_t * actions, int from), (actions, from))
SHIM_GIVING("pthread_create", pthread_create,
            (pthread_t * thread, const pthread_attr_t *attributes, void *(*start)(void *),
             void *argument),
            (thread, attributes, start, argument))

// What passes over the bus. Its thread is known by that.
#define SHIM_MESSAGE(name, parameters, arguments, halfOfArguments)                                 \
  extern "C" __attribute__((visibility("default"))) ssize_t shim_##name parameters __asm__(#name); \
  extern "C" ssize_t shim_##name parameters {                                                      \
    static const auto real = next<ssize_t(*) parameters>(#name);                                   \
    isThreadOfBus = true;                                                                          \
    int error = faultOf(#name);                                                                    \
    if (error == halfOfIt) {                                                                       \
      Half half(*message);                                                                         \
      return real halfOfArguments;                                                                 \
    }                                                                                              \
    if (error <= 0)                                                                                \
      return real arguments;                                                                       \
    errno = error;                                                                                 \
    return -1;                                                                                     \
  }
SHIM_MESSAGE(sendmsg, (int socket, const struct msghdr *message, int flags),
             (socket, message, flags), (socket, &half.message, flags))
SHIM_MESSAGE(recvmsg, (int socket, struct msghdr *message, int flags), (socket, message, flags),
             (socket, &half.message, flags))

// NOLINTEND(bugprone-macro-parentheses)

// The descriptor is gone even when the last of the file could not be written.
extern "C" __attribute__((visibility("default"))) int shim_close(int descriptor) __asm__("close");
extern "C" int shim_close(int descriptor) {
  static const auto real = next<int (*)(int)>("close");
  int error = isRegular(descriptor) ? faultOf("close") : 0;
  int result = real(descriptor);
  if (error <= 0)
    return result;
  errno = error;
  return -1;
}

__attribute__((visibility("default"))) void *operator new(std::size_t size) {
  if (control && control->armed && (control->threads == Threads::OfTheBus) == isThreadOfBus &&
      ++control->allocations == control->allocationToFail)
    throw std::bad_alloc();
  if (void *memory = std::malloc(size > 0 ? size : 1))
    return memory;
  throw std::bad_alloc();
}
