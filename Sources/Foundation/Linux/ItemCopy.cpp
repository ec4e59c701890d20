// One item's content by extents and its metadata by open handles, never by a
// path that somebody could exchange.
#include "Foundation/Linux/ItemCopy.h"

#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/POSIX/AttributeCopy.h"
#include "Foundation/POSIX/Descriptor.h"
#include "Foundation/POSIX/Retrying.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <vector>

namespace NS {
namespace {

constexpr std::size_t blockSize = 256 * 1024;
constexpr std::size_t largestExtent = 1024 * 1024 * 1024;

timespec timeFrom(const statx_timestamp &time) {
  timespec result;
  result.tv_sec = time.tv_sec;
  result.tv_nsec = time.tv_nsec;
  return result;
}

int copyByHand(int source, int target, off_t start, off_t end) {
  std::vector<std::byte> block(std::min(blockSize, static_cast<std::size_t>(end - start)));
  while (start < end) {
    std::size_t wanted = std::min(block.size(), static_cast<std::size_t>(end - start));
    ssize_t count = retrying([&] { return ::pread(source, block.data(), wanted, start); });
    if (count <= 0)
      return count < 0 ? errno : 0;
    for (ssize_t done = 0; done < count;) {
      ssize_t written = retrying([&] {
        return ::pwrite(target, block.data() + done, static_cast<std::size_t>(count - done),
                        start + done);
      });
      if (written < 0)
        return errno;
      done += written;
    }
    start += count;
  }
  return 0;
}

bool isUnsupported(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
         error == EPERM || error == EBADF;
}

int copyExtent(int source, int target, off_t start, off_t end) {
  while (start < end) {
    off_t from = start, to = start;
    std::size_t length = std::min(largestExtent, static_cast<std::size_t>(end - start));
    ssize_t count =
        retrying([&] { return ::copy_file_range(source, &from, target, &to, length, 0); });
    if (count < 0 && !isUnsupported(errno))
      return errno;
    // Some volumes answer 0 where a plain read still gives data.
    if (count <= 0)
      return copyByHand(source, target, start, end);
    start += count;
  }
  return 0;
}

int makeNode(int sourceFolder, const char *name, int targetFolder, const char *targetName,
             const ItemStatus &status) {
  if (!S_ISLNK(status.mode))
    return ::mknodat(targetFolder, targetName, (status.mode & S_IFMT) | S_IRUSR | S_IWUSR,
                     status.representedDevice) == 0
               ? 0
               : errno;
  std::string destination(4096, '\0'); // no link holds more
  ssize_t length = ::readlinkat(sourceFolder, name, destination.data(), destination.size());
  if (length < 0)
    return errno;
  destination.resize(static_cast<std::size_t>(length));
  return ::symlinkat(destination.c_str(), targetFolder, targetName) == 0 ? 0 : errno;
}

} // namespace

int readStatus(int folder, const char *name, ItemStatus &status) {
  struct statx read;
  if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH | AT_NO_AUTOMOUNT,
              STATX_BASIC_STATS, &read) != 0)
    return errno;
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
  status.isLocked = (read.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
  status.isMountPoint = (read.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  return 0;
}

int copyData(int source, int target, off_t size) {
  if (retrying([&] { return ::ftruncate(target, size); }) != 0)
    return errno;
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
    if (int error = start < end ? copyExtent(source, target, start, end) : 0)
      return error;
    start = end;
  }
  return 0;
}

int copyMetadata(int source, int target, const ItemStatus &status) {
  mode_t mode = status.mode & 07777;
  if (::fchownat(target, "", status.owner, status.group, AT_EMPTY_PATH) != 0) {
    if (errno != EPERM && errno != EINVAL)
      return errno;
    mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
  }
  if (int error = copyAttributes(source, target, CopiedData::Same, mode))
    return error;
  if (!S_ISLNK(status.mode) && ::chmod(handlePath(target).c_str(), mode) != 0)
    return errno;
  return ::utimensat(target, "", status.times, AT_EMPTY_PATH) == 0 ? 0 : errno;
}

int copyFile(int sourceFolder, const char *name, int targetFolder, const char *targetName,
             ItemStatus &status) {
  Descriptor source(
      ::openat(sourceFolder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!source)
    return errno;
  // The status of what was opened, should the name mean another item by now.
  if (int error = readStatus(source.get(), "", status))
    return error;
  if (!S_ISREG(status.mode))
    return ESTALE;
  Descriptor target(::openat(targetFolder, targetName,
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             S_IRUSR | S_IWUSR));
  if (!target)
    return errno;
  if (int error = copyData(source.get(), target.get(), status.size))
    return error;
  return copyMetadata(source.get(), target.get(), status);
}

int copyNode(int sourceFolder, const char *name, int targetFolder, const char *targetName,
             const ItemStatus &status) {
  Descriptor source(::openat(sourceFolder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!source)
    return errno;
  if (int error = makeNode(sourceFolder, name, targetFolder, targetName, status))
    return error;
  Descriptor target(::openat(targetFolder, targetName, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!target)
    return errno;
  ItemStatus made;
  if (int error = readStatus(target.get(), "", made))
    return error;
  if ((made.mode & S_IFMT) != (status.mode & S_IFMT))
    return ESTALE;
  return copyMetadata(source.get(), target.get(), status);
}

} // namespace NS
