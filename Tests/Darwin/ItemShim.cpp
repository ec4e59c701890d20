// Items, their flags and their names, after the manual pages.
#define KW_DARWIN_SHIM
#include "Darwin/Headers/fcntl.h"
#include "Darwin/Headers/stdio.h"
#include "Darwin/Headers/sys/stat.h"
#include "Darwin/Headers/unistd.h"
#include "Darwin/Shim.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <linux/fs.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

using kwtest::darwin::shim;
using kwtest::darwin::shimMutex;

namespace {

// This host keeps two of the flags itself.
constexpr unsigned immutableFlags = UF_IMMUTABLE | SF_IMMUTABLE;
constexpr unsigned appendFlags = UF_APPEND | SF_APPEND;

std::uint32_t flagsOf(const struct statx &found) {
  std::lock_guard lock(shimMutex());
  auto other = shim().otherFlags.find(found.stx_ino);
  return (found.stx_attributes & STATX_ATTR_IMMUTABLE ? SF_IMMUTABLE : 0) |
         (found.stx_attributes & STATX_ATTR_APPEND ? SF_APPEND : 0) |
         (other == shim().otherFlags.end() ? 0 : other->second);
}

timespec timeFrom(const statx_timestamp &time) {
  timespec result;
  result.tv_sec = time.tv_sec;
  result.tv_nsec = time.tv_nsec;
  return result;
}

std::string pathOf(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

} // namespace

int darwin_fstatat(int folder, const char *path, struct darwin_stat *status, int flags) {
  struct statx found;
  if (shim().withoutStatus.contains(path)) {
    errno = EIO;
    return -1;
  }
  if (::statx(folder, path, flags, STATX_BASIC_STATS | STATX_BTIME, &found) != 0)
    return -1;
  *status = {
      .st_dev = static_cast<std::int32_t>(::makedev(found.stx_dev_major, found.stx_dev_minor)),
      .st_mode = found.stx_mode,
      .st_nlink = static_cast<std::uint16_t>(found.stx_nlink),
      .st_ino = found.stx_ino,
      .st_uid = found.stx_uid,
      .st_gid = found.stx_gid,
      .st_rdev = static_cast<std::int32_t>(::makedev(found.stx_rdev_major, found.stx_rdev_minor)),
      .st_atimespec = timeFrom(found.stx_atime),
      .st_mtimespec = timeFrom(found.stx_mtime),
      .st_ctimespec = timeFrom(found.stx_ctime),
      .st_birthtimespec = timeFrom(found.stx_btime),
      .st_size = static_cast<off_t>(found.stx_size),
      .st_blocks = static_cast<std::int64_t>(found.stx_blocks),
      .st_blksize = static_cast<std::int32_t>(found.stx_blksize),
      .st_flags = flagsOf(found)};
  return 0;
}

int darwin_fstat(int item, struct darwin_stat *status) {
  return darwin_fstatat(item, "", status, AT_EMPTY_PATH);
}

int darwin_futimens(int item, const timespec *times) {
  return ::utimensat(item, "", times, AT_EMPTY_PATH);
}

int darwin_fchown(int item, uid_t owner, gid_t group) {
  return ::fchownat(item, "", owner, group, AT_EMPTY_PATH);
}

int fchflags(int item, unsigned flags) {
  struct statx found;
  int inodeFlags = 0;
  if (::statx(item, "", AT_EMPTY_PATH, STATX_INO, &found) != 0)
    return -1;
  {
    std::lock_guard lock(shimMutex());
    shim().otherFlags[found.stx_ino] = flags & ~(SF_IMMUTABLE | SF_APPEND);
  }
  if (::ioctl(item, FS_IOC_GETFLAGS, &inodeFlags) != 0)
    return flags == 0 ? 0 : -1; // the volume has no flags
  int wanted = (inodeFlags & ~(FS_IMMUTABLE_FL | FS_APPEND_FL)) |
               (flags & immutableFlags ? FS_IMMUTABLE_FL : 0) |
               (flags & appendFlags ? FS_APPEND_FL : 0);
  return wanted == inodeFlags ? 0 : ::ioctl(item, FS_IOC_SETFLAGS, &wanted);
}

// A folder is refused with another error here.
int darwin_unlinkat(int folder, const char *path, int flags) {
  int result = ::unlinkat(folder, path, flags);
  if (result != 0 && errno == EISDIR)
    errno = EPERM;
  return result;
}

int renameatx_np(int folder, const char *path, int newFolder, const char *newPath, unsigned flags) {
  if ((flags & RENAME_EXCL) && !shim().exclusiveRenames) {
    errno = ENOTSUP;
    return -1;
  }
  return ::renameat2(folder, path, newFolder, newPath, flags & RENAME_EXCL ? RENAME_NOREPLACE : 0);
}

int darwin_fcntl(int descriptor, int command, void *argument) {
  if (command == F_FULLFSYNC)
    return ::fsync(descriptor);
  if (command != F_GETPATH)
    return ::fcntl(descriptor, command, argument);
  auto *path = static_cast<char *>(argument);
  ssize_t length = ::readlink(pathOf(descriptor).c_str(), path, PATH_MAX - 1);
  path[length < 0 ? 0 : length] = '\0';
  if (length >= 0 && std::strstr(path, " (deleted)") == nullptr)
    return 0;
  errno = ENOENT;
  return -1;
}

int fsync_volume_np(int item, int) {
  return ::syncfs(item);
}
