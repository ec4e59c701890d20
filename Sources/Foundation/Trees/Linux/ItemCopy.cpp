// Copies one item's content by extents and its metadata by open handles. It
// uses no path, which another process could exchange.
#include "Foundation/Trees/Linux/ItemCopy.h"

#include "Foundation/Base/Internal/Retrying.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Files/Linux/ItemLocation.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <string>
#include <sys/sysmacros.h>
#include <vector>

namespace NS {
namespace {

constexpr std::size_t blockSize = 256 * 1024;
// Between two of them the copy checks whether it was cancelled.
constexpr std::size_t largestExtent = 64 * 1024 * 1024;

StepOutcome failureToWrite(int error) {
  return {TreeStep::Write, error, TreeSide::Copy};
}

timespec timeFrom(const statx_timestamp &time) {
  timespec result;
  result.tv_sec = time.tv_sec;
  result.tv_nsec = time.tv_nsec;
  return result;
}

StepOutcome checkCancelled() {
  return {TreeStep::Cancel, Progress::current().isCancelled() ? ECANCELED : 0};
}

StepOutcome writeAll(int target, const std::byte *bytes, std::size_t size, off_t start) {
  while (size > 0) {
    ssize_t written = retrying([&] { return ::pwrite(target, bytes, size, start); });
    if (written <= 0)
      return failureToWrite(written < 0 ? errno : EIO);
    bytes += written;
    size -= static_cast<std::size_t>(written);
    start += written;
  }
  return {};
}

StepOutcome copyByHand(int source, int target, off_t start, off_t end) {
  std::vector<std::byte> block(std::min(blockSize, static_cast<std::size_t>(end - start)));
  while (start < end) {
    if (StepOutcome outcome = checkCancelled(); outcome.isFailed())
      return outcome;
    std::size_t wanted = std::min(block.size(), static_cast<std::size_t>(end - start));
    ssize_t count = retrying([&] { return ::pread(source, block.data(), wanted, start); });
    if (count <= 0)
      return {TreeStep::Read, count < 0 ? errno : 0};
    if (StepOutcome outcome =
            writeAll(target, block.data(), static_cast<std::size_t>(count), start);
        outcome.isFailed())
      return outcome;
    start += count;
  }
  return {};
}

bool isUnsupported(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
         error == EPERM || error == EBADF;
}

StepOutcome copyExtent(int source, int target, off_t start, off_t end) {
  while (start < end) {
    if (StepOutcome outcome = checkCancelled(); outcome.isFailed())
      return outcome;
    off_t from = start, to = start;
    std::size_t length = std::min(largestExtent, static_cast<std::size_t>(end - start));
    ssize_t count =
        retrying([&] { return ::copy_file_range(source, &from, target, &to, length, 0); });
    if (count < 0 && !isUnsupported(errno))
      return failureToWrite(errno);
    // Some volumes return 0 even though a plain read still gives data.
    if (count <= 0)
      return copyByHand(source, target, start, end);
    start += count;
  }
  return {};
}

// Reads the status before the data. A file that was changed within this very
// tick of the kernel's clock could change once more without a change of its
// time, so this waits for the end of the tick.
StepOutcome readStatusBeforeData(int file, ItemStatus &status) {
  constexpr timespec aMillisecond{0, 1'000'000};
  constexpr int longestTick = 10; // milliseconds
  for (int waited = 0;; ++waited) {
    if (StepOutcome outcome = readStatus(file, "", status); outcome.isFailed())
      return outcome;
    timespec now;
    bool isOfThisTick = ::clock_gettime(CLOCK_REALTIME_COARSE, &now) == 0 &&
                        now.tv_sec == status.changed.tv_sec &&
                        now.tv_nsec <= status.changed.tv_nsec;
    if (!isOfThisTick || waited == longestTick)
      return {};
    static_cast<void>(::nanosleep(&aMillisecond, nullptr));
  }
}

// The source is a handle of the item itself.
StepOutcome makeNode(int source, int targetFolder, const char *targetName,
                     const ItemStatus &status) {
  if (!S_ISLNK(status.mode))
    return failureToWrite(::mknodat(targetFolder, targetName,
                                    (status.mode & S_IFMT) | S_IRUSR | S_IWUSR,
                                    status.representedDevice) == 0
                              ? 0
                              : errno);
  std::string destination(4096, '\0'); // the longest target of a link
  ssize_t length = ::readlinkat(source, "", destination.data(), destination.size());
  if (length < 0)
    return {TreeStep::Read, errno};
  destination.resize(static_cast<std::size_t>(length));
  return failureToWrite(::symlinkat(destination.c_str(), targetFolder, targetName) == 0 ? 0
                                                                                        : errno);
}

// The outcome of setting one attribute of the copy. A failure that means that
// the volume cannot hold it is noted and forgiven.
StepOutcome described(int result, const char *thing, LeftOut &leftOut) {
  int error = result == 0 ? 0 : errno;
  if (!mayBeLeftOut(error))
    return {TreeStep::Describe, error, TreeSide::Copy};
  leftOut.note(thing, error);
  return {};
}

// With another owner or group than the original's, set-ID bits would lend
// another identity, and the group's rights would go to users that the original
// counted as others.
mode_t modeForAnotherOwner(mode_t mode) {
  mode_t others = mode & S_IRWXO;
  return (mode & ~static_cast<mode_t>(S_ISUID | S_ISGID | S_IRWXG)) | ((others << 3) & mode);
}

} // namespace

StepOutcome readStatus(int folder, const char *name, ItemStatus &status) {
  struct statx read;
  if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH | AT_NO_AUTOMOUNT,
              STATX_BASIC_STATS, &read) != 0)
    return {*name ? TreeStep::Look : TreeStep::Identify, errno};
  status.mode = read.stx_mode;
  status.owner = read.stx_uid;
  status.group = read.stx_gid;
  status.device = ::makedev(read.stx_dev_major, read.stx_dev_minor);
  status.inode = read.stx_ino;
  status.links = read.stx_nlink;
  status.representedDevice = ::makedev(read.stx_rdev_major, read.stx_rdev_minor);
  status.size = static_cast<off_t>(read.stx_size);
  status.times[0] = timeFrom(read.stx_atime);
  status.times[1] = timeFrom(read.stx_mtime);
  status.changed = timeFrom(read.stx_ctime);
  status.isImmutable = (read.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
  status.isAppendOnly = (read.stx_attributes & STATX_ATTR_APPEND) != 0;
  status.isMountPoint = (read.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  return {};
}

StepOutcome copyData(int source, int target, off_t size) {
  if (retrying([&] { return ::ftruncate(target, size); }) != 0)
    return failureToWrite(errno);
  for (off_t start = 0; start < size;) {
    off_t end = size;
    off_t data = ::lseek(source, start, SEEK_DATA);
    if (data < 0 && errno == ENXIO)
      break;
    if (data >= 0) {
      start = data;
      off_t hole = ::lseek(source, data, SEEK_HOLE);
      end = hole < 0 ? size : std::min(hole, size);
    }
    if (start < end)
      if (StepOutcome outcome = copyExtent(source, target, start, end); outcome.isFailed())
        return outcome;
    start = end;
  }
  return {};
}

// The owner comes first and the mode after the attributes: a change of the owner
// clears bits of the mode, and an access list sets some.
StepOutcome copyMetadata(int source, int target, const ItemStatus &status, LeftOut &leftOut) {
  mode_t mode = status.mode & 07777;
  std::uint64_t before = leftOut.times;
  StepOutcome outcome = described(::fchownat(target, "", status.owner, status.group, AT_EMPTY_PATH),
                                  "the owner", leftOut);
  if (outcome.isFailed())
    return outcome;
  bool hasOwner = leftOut.times == before;
  if (int error = copyAttributes(source, target, CopiedData::Same, mode, leftOut))
    return {TreeStep::Describe, error, TreeSide::Copy};
  if (!hasOwner)
    mode = modeForAnotherOwner(mode);
  if (!S_ISLNK(status.mode))
    outcome = described(::chmod(handlePath(target).c_str(), mode), "the mode", leftOut);
  if (outcome.isFailed())
    return outcome;
  return described(::utimensat(target, "", status.times, AT_EMPTY_PATH), "the times", leftOut);
}

StepOutcome copyFile(int sourceFolder, const char *name, int targetFolder, const char *targetName,
                     ItemStatus &status, LeftOut &leftOut) {
  Descriptor source(
      ::openat(sourceFolder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!source && (errno == ELOOP || errno == ENXIO))
    return {TreeStep::Check, ESTALE};
  if (!source)
    return {TreeStep::Open, errno};
  // The status of the opened item, in case the name means another item by now.
  if (StepOutcome outcome = readStatusBeforeData(source.get(), status); outcome.isFailed())
    return outcome;
  if (!S_ISREG(status.mode))
    return {TreeStep::Check, ESTALE};
  Descriptor target(::openat(targetFolder, targetName,
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             S_IRUSR | S_IWUSR));
  if (!target)
    return failureToWrite(errno);
  if (StepOutcome outcome = copyData(source.get(), target.get(), status.size); outcome.isFailed())
    return outcome;
  return copyMetadata(source.get(), target.get(), status, leftOut);
}

StepOutcome copyNode(int sourceFolder, const char *name, int targetFolder, const char *targetName,
                     ItemStatus &status, LeftOut &leftOut) {
  Descriptor source(::openat(sourceFolder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!source)
    return {TreeStep::Open, errno};
  mode_t kind = status.mode & S_IFMT;
  if (StepOutcome outcome = readStatus(source.get(), "", status); outcome.isFailed())
    return outcome;
  if ((status.mode & S_IFMT) != kind)
    return {TreeStep::Check, ESTALE};
  if (StepOutcome outcome = makeNode(source.get(), targetFolder, targetName, status);
      outcome.isFailed())
    return outcome;
  Descriptor target(::openat(targetFolder, targetName, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!target)
    return failureToWrite(errno);
  return copyMetadata(source.get(), target.get(), status, leftOut);
}

} // namespace NS
