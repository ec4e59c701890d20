// Items by fstatat, and file flags by fchflags. This host has no descriptor that
// only refers to an item.
#include "Foundation/Files/POSIX/ItemCalls.h"

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS::itemcalls {
namespace {

static_assert(UF_IMMUTABLE_FLAG == UF_IMMUTABLE && UF_APPEND_FLAG == UF_APPEND);
static_assert(SF_IMMUTABLE_FLAG == SF_IMMUTABLE && SF_APPEND_FLAG == SF_APPEND);
static_assert(UF_HIDDEN_FLAG == UF_HIDDEN && SF_RESTRICTED_FLAG == SF_RESTRICTED);

int look(int folder, const char *name, Links links, struct stat &found) {
  int follow = links == Links::Follow ? 0 : AT_SYMLINK_NOFOLLOW;
  int result = *name ? ::fstatat(folder, name, &found, follow) : ::fstat(folder, &found);
  return result == 0 ? 0 : errno;
}

// Only a folder can be a mount point. It is one when the folder above is on
// another volume, or is the folder itself, as at the root.
bool isMountPoint(int folder, const char *name, const struct stat &item) {
  struct stat above;
  if (!S_ISDIR(item.st_mode) || folder == AT_FDCWD ||
      (*name ? ::fstat(folder, &above) : ::fstatat(folder, "..", &above, 0)) != 0)
    return false;
  return above.st_dev != item.st_dev || above.st_ino == item.st_ino;
}

} // namespace

const int placeFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

int readStatus(int folder, const char *name, Links links, ItemStatus &status) {
  struct stat found;
  if (int error = look(folder, name, links, found))
    return error;
  status.mode = found.st_mode;
  status.owner = found.st_uid;
  status.group = found.st_gid;
  status.device = static_cast<std::uint64_t>(found.st_dev);
  status.inode = found.st_ino;
  status.links = found.st_nlink;
  status.representedDevice = static_cast<dev_t>(found.st_rdev);
  status.size = found.st_size;
  status.times[0] = found.st_atimespec;
  status.times[1] = found.st_mtimespec;
  status.changed = found.st_ctimespec;
  status.born = found.st_birthtimespec;
  status.flags = found.st_flags;
  status.isMountPoint = links == Links::Take && isMountPoint(folder, name, found);
  return 0;
}

// Looks first, since opening a device can have effects. A device that takes the
// item's place after the look is opened even so.
int clearFlags(int folder, const char *name, Links links, std::uint32_t mask) {
  struct stat found;
  if (int error = look(folder, name, links, found))
    return error;
  if ((found.st_flags & mask) == 0)
    return 0;
  if (!S_ISREG(found.st_mode) && !S_ISDIR(found.st_mode))
    return EOPNOTSUPP;
  int follow = links == Links::Follow ? 0 : O_NOFOLLOW;
  Descriptor item(::openat(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | follow));
  if (!item || ::fstat(item.get(), &found) != 0)
    return errno;
  return ::fchflags(item.get(), found.st_flags & ~mask) == 0 ? 0 : errno;
}

// unlinkat gives EPERM for a folder, as for a locked item.
int unlink(int folder, const char *name) {
  if (::unlinkat(folder, name, 0) == 0)
    return 0;
  int error = errno;
  ItemStatus status;
  bool isFolder = error == EPERM && readStatus(folder, name, Links::Take, status) == 0 &&
                  S_ISDIR(status.mode) && !status.isLocked();
  return isFolder ? EISDIR : error;
}

int renameExclusively(int folder, const char *name, int newFolder, const char *newName) {
  return ::renameatx_np(folder, name, newFolder, newName, RENAME_EXCL) == 0 ? 0 : errno;
}

int readPath(int folder, std::string &path) {
  path.resize(MAXPATHLEN);
  int result = ::fcntl(folder, F_GETPATH, path.data());
  path.resize(result < 0 ? 0 : std::strlen(path.c_str()));
  return result < 0 ? errno : 0;
}

} // namespace NS::itemcalls
