// Items by statx, and file flags by the inode flags. Linux has one immutable and
// one append-only flag; the platform has two of each, the owner's and the
// system's. The flags here read as the system's.
#include "Foundation/Files/POSIX/ItemCalls.h"

#include "Foundation/Descriptors/Linux/HandlePath.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace NS::itemcalls {
namespace {

timespec timeFrom(const statx_timestamp &time) {
  timespec result;
  result.tv_sec = time.tv_sec;
  result.tv_nsec = time.tv_nsec;
  return result;
}

std::uint32_t flagsFrom(std::uint64_t attributes) {
  std::uint32_t flags = 0;
  if (attributes & STATX_ATTR_IMMUTABLE)
    flags |= SF_IMMUTABLE_FLAG;
  if (attributes & STATX_ATTR_APPEND)
    flags |= SF_APPEND_FLAG;
  return flags;
}

int inodeFlagsOf(std::uint32_t flags) {
  int inodeFlags = 0;
  if (flags & (UF_IMMUTABLE_FLAG | SF_IMMUTABLE_FLAG))
    inodeFlags |= FS_IMMUTABLE_FL;
  if (flags & (UF_APPEND_FLAG | SF_APPEND_FLAG))
    inodeFlags |= FS_APPEND_FL;
  return inodeFlags;
}

} // namespace

const int placeFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

int readStatus(int folder, const char *name, Links links, ItemStatus &status) {
  int follow = links == Links::Follow ? 0 : AT_SYMLINK_NOFOLLOW;
  int empty = *name ? 0 : AT_EMPTY_PATH;
  struct statx read;
  if (::statx(folder, name, follow | empty | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_BTIME,
              &read) != 0)
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
  status.changed = timeFrom(read.stx_ctime);
  status.born = (read.stx_mask & STATX_BTIME) ? timeFrom(read.stx_btime) : timespec{};
  status.flags = flagsFrom(read.stx_attributes);
  status.isMountPoint = (read.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  return 0;
}

// A descriptor by O_PATH refers to the item without opening it. The check and
// the open both go through it, so that no device or FIFO that takes the item's
// name in between is opened.
int clearFlags(int folder, const char *name, Links links, std::uint32_t mask) {
  int follow = links == Links::Follow ? 0 : O_NOFOLLOW;
  Descriptor handle(::openat(folder, name, O_PATH | O_CLOEXEC | follow));
  if (!handle)
    return errno;
  ItemStatus status;
  if (int error = readStatus(handle.get(), "", Links::Take, status))
    return error;
  if ((status.flags & mask) == 0)
    return 0;
  if (!S_ISREG(status.mode) && !S_ISDIR(status.mode))
    return EOPNOTSUPP;
  Descriptor item(
      ::open(handlePath(handle.get()).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!item)
    return errno;
  int present = 0;
  if (::ioctl(item.get(), FS_IOC_GETFLAGS, &present) != 0)
    return errno == ENOTTY ? EOPNOTSUPP : errno;
  present &= ~inodeFlagsOf(mask);
  return ::ioctl(item.get(), FS_IOC_SETFLAGS, &present) == 0 ? 0 : errno;
}

int unlink(int folder, const char *name) {
  return ::unlinkat(folder, name, 0) == 0 ? 0 : errno;
}

// EINVAL means that the volume cannot do it, or that a folder would move into
// itself; the caller's other way of renaming finds out which.
int renameExclusively(int folder, const char *name, int newFolder, const char *newName) {
  if (::renameat2(folder, name, newFolder, newName, RENAME_NOREPLACE) == 0)
    return 0;
  return errno == EINVAL || errno == ENOSYS ? ENOTSUP : errno;
}

int readPath(int folder, std::string &path) {
  path.resize(PATH_MAX); // the longest path that the kernel returns
  ssize_t length = ::readlink(handlePath(folder).c_str(), path.data(), path.size());
  path.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return length < 0 ? errno : 0;
}

} // namespace NS::itemcalls
