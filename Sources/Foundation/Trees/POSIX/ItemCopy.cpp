// Copies one item's content by extents and its metadata by open handles. It
// uses no path, which another process could exchange.
#include "Foundation/Trees/POSIX/ItemCopy.h"

#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Trees/POSIX/CopyCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace NS {
namespace {

constexpr std::size_t blockSize = 256 * 1024;
// Between two of them the copy checks whether it was cancelled.
constexpr std::size_t largestExtent = 64 * 1024 * 1024;

StepOutcome failureToWrite(int error) {
  return {TreeStep::Write, error, TreeSide::Copy};
}

StepOutcome checkCancelled() {
  return {TreeStep::Cancel, Progress::current().isCancelled() ? ECANCELED : 0};
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
    if (int error = writeFully(target, block.data(), static_cast<std::size_t>(count), start))
      return failureToWrite(error);
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
    std::size_t length = std::min(largestExtent, static_cast<std::size_t>(end - start));
    ssize_t copied = retrying([&] { return copycalls::copyRange(source, target, start, length); });
    if (copied < 0 && !isUnsupported(errno))
      return failureToWrite(errno);
    // Some volumes return 0 even though a plain read still gives data.
    if (copied <= 0)
      return copyByHand(source, target, start, end);
    start += copied;
  }
  return {};
}

constexpr int longestTick = 100; // milliseconds

// Reads the status before the data, and waits until a further change of the file
// would show in its time of change.
StepOutcome readStatusBeforeData(int file, ItemStatus &status) {
  constexpr timespec aMillisecond{0, 1'000'000};
  for (int waited = 0;; ++waited) {
    if (StepOutcome outcome = readStatus(file, "", status); outcome.isFailed())
      return outcome;
    timespec now;
    if (::clock_gettime(copycalls::changeClock, &now) != 0 ||
        !mayChangeUnnoticed(status.changed, now) || waited == longestTick)
      return {};
    static_cast<void>(::nanosleep(&aMillisecond, nullptr));
  }
}

// The source is an open node.
StepOutcome makeNode(int source, int sourceFolder, const char *name, int targetFolder,
                     const char *targetName, const ItemStatus &status) {
  if (!S_ISLNK(status.mode))
    return failureToWrite(copycalls::makeNode(targetFolder, targetName, status));
  std::string destination;
  if (int error = copycalls::readLink(source, sourceFolder, name, destination))
    return {error == ESTALE ? TreeStep::Check : TreeStep::Read, error};
  return failureToWrite(::symlinkat(destination.c_str(), targetFolder, targetName) == 0 ? 0
                                                                                        : errno);
}

// The outcome of setting one attribute of the copy. A failure that means that
// the volume cannot hold it is noted and forgiven.
StepOutcome described(int error, const char *thing, LeftOut &leftOut) {
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

bool mayChangeUnnoticed(const timespec &changed, const timespec &now) {
  constexpr std::int64_t second = 1'000'000'000;
  if (changed.tv_sec < now.tv_sec || changed.tv_sec - now.tv_sec > 1)
    return false;
  std::int64_t ahead = (changed.tv_sec - now.tv_sec) * second + changed.tv_nsec - now.tv_nsec;
  return ahead >= 0 && ahead <= std::int64_t{longestTick} * 1'000'000;
}

StepOutcome readStatus(int folder, const char *name, ItemStatus &status) {
  int error = itemcalls::readStatus(folder, name, Links::Take, status);
  return {*name ? TreeStep::Look : TreeStep::Identify, error};
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
  StepOutcome outcome =
      described(copycalls::setOwner(target, status.owner, status.group), "the owner", leftOut);
  if (outcome.isFailed())
    return outcome;
  bool hasOwner = leftOut.times == before;
  if (int error = copyAttributes(source, target, CopiedData::Same, mode, leftOut))
    return {TreeStep::Describe, error, TreeSide::Copy};
  if (!hasOwner)
    mode = modeForAnotherOwner(mode);
  if (!S_ISLNK(status.mode))
    outcome = described(copycalls::setMode(target, mode), "the mode", leftOut);
  if (outcome.isFailed())
    return outcome;
  return described(copycalls::setTimes(target, status.times), "the times", leftOut);
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
  bool isClone = copycalls::cloneFile(source.get(), targetFolder, targetName) == 0;
  int access = isClone ? O_RDONLY : O_WRONLY | O_CREAT | O_EXCL;
  Descriptor target(
      ::openat(targetFolder, targetName, access | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!target)
    return failureToWrite(errno);
  if (!isClone)
    if (StepOutcome outcome = copyData(source.get(), target.get(), status.size); outcome.isFailed())
      return outcome;
  return copyMetadata(source.get(), target.get(), status, leftOut);
}

StepOutcome copyNode(int sourceFolder, const char *name, int targetFolder, const char *targetName,
                     ItemStatus &status, LeftOut &leftOut) {
  Descriptor source = copycalls::openNode(sourceFolder, name);
  if (!source)
    return {TreeStep::Open, errno};
  mode_t kind = status.mode & S_IFMT;
  if (StepOutcome outcome = readStatus(source.get(), "", status); outcome.isFailed())
    return outcome;
  if ((status.mode & S_IFMT) != kind)
    return {TreeStep::Check, ESTALE};
  if (StepOutcome outcome =
          makeNode(source.get(), sourceFolder, name, targetFolder, targetName, status);
      outcome.isFailed())
    return outcome;
  Descriptor target = copycalls::openNode(targetFolder, targetName);
  if (!target)
    return failureToWrite(errno);
  return copyMetadata(source.get(), target.get(), status, leftOut);
}

} // namespace NS
