// Copying by clones, and by the calls for open items. Links are the only nodes
// that can be opened here without an effect. Other nodes are refused, as the
// platform's own copying does.
#include "Foundation/Trees/POSIX/CopyCalls.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/clonefile.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS::copycalls {
namespace {

int errorOf(int result) {
  return result == 0 ? 0 : errno;
}

} // namespace

int cloneFile(int source, int folder, const char *name) {
  if (::fclonefileat(source, folder, name, CLONE_NOOWNERCOPY) != 0)
    return errno;
  Descriptor clone(::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  // A clone has the file's flags too; a copy has none.
  if (clone && ::fchflags(clone.get(), 0) == 0)
    return 0;
  int error = errno;
  static_cast<void>(::unlinkat(folder, name, 0));
  return error;
}

ssize_t copyRange(int /*source*/, int /*target*/, off_t /*start*/, std::size_t /*length*/) {
  errno = ENOSYS;
  return -1;
}

const clockid_t changeClock = CLOCK_REALTIME;

Descriptor openNode(int folder, const char *name) {
  struct stat found;
  if (::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) != 0)
    return {};
  if (!S_ISLNK(found.st_mode)) {
    errno = ENOTSUP;
    return {};
  }
  return Descriptor(
      ::openat(folder, name, O_RDONLY | O_SYMLINK | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

// The text of a link never changes, so it is that of the open link if the name
// still means it.
int readLink(int link, int folder, const char *name, std::string &target) {
  target.resize(MAXPATHLEN);
  ssize_t length = ::readlinkat(folder, name, target.data(), target.size());
  if (length < 0)
    return errno == EINVAL || errno == ENOENT ? ESTALE : errno;
  target.resize(static_cast<std::size_t>(length));
  struct stat open, named;
  if (::fstat(link, &open) != 0 || ::fstatat(folder, name, &named, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT ? ESTALE : errno;
  return open.st_dev == named.st_dev && open.st_ino == named.st_ino ? 0 : ESTALE;
}

// openNode() has refused those.
int makeNode(int /*folder*/, const char * /*name*/, const ItemStatus & /*like*/) {
  return ENOTSUP;
}

int setOwner(int item, uid_t owner, gid_t group) {
  return errorOf(::fchown(item, owner, group));
}

int setMode(int item, mode_t mode) {
  return errorOf(::fchmod(item, mode));
}

int setTimes(int item, const timespec (&accessAndModification)[2]) {
  return errorOf(::futimens(item, accessAndModification));
}

// fsync leaves the data in the memory of the disk.
int syncFile(int file) {
  return ::fcntl(file, F_FULLFSYNC) == 0 || ::fsync(file) == 0 ? 0 : errno;
}

int syncVolume(int folder) {
  return errorOf(::fsync_volume_np(folder, SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT));
}

} // namespace NS::copycalls
