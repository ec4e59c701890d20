// Copying by the calls for descriptors that only refer to an item.
#include "Foundation/Trees/POSIX/CopyCalls.h"

#include "Foundation/Descriptors/Linux/HandlePath.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS::copycalls {
namespace {

int errorOf(int result) {
  return result == 0 ? 0 : errno;
}

} // namespace

// There is no call for it here. copy_file_range makes volumes share the data of
// both files where they can.
int cloneFile(int /*source*/, int /*folder*/, const char * /*name*/) {
  return ENOTSUP;
}

ssize_t copyRange(int source, int target, off_t start, std::size_t length) {
  off_t from = start, to = start;
  return ::copy_file_range(source, &from, target, &to, length, 0);
}

const clockid_t changeClock = CLOCK_REALTIME_COARSE;

Descriptor openNode(int folder, const char *name) {
  return Descriptor(::openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

int readLink(int link, int /*folder*/, const char * /*name*/, std::string &target) {
  char text[PATH_MAX]; // the longest target of a link
  ssize_t length = ::readlinkat(link, "", text, sizeof text);
  if (length < 0)
    return errno;
  target.assign(text, static_cast<std::size_t>(length));
  return 0;
}

int makeNode(int folder, const char *name, const ItemStatus &like) {
  return errorOf(
      ::mknodat(folder, name, (like.mode & S_IFMT) | S_IRUSR | S_IWUSR, like.representedDevice));
}

int setOwner(int item, uid_t owner, gid_t group) {
  return errorOf(::fchownat(item, "", owner, group, AT_EMPTY_PATH));
}

int setMode(int item, mode_t mode) {
  return errorOf(::chmod(handlePath(item).c_str(), mode));
}

int setTimes(int item, const timespec (&accessAndModification)[2]) {
  return errorOf(::utimensat(item, "", accessAndModification, AT_EMPTY_PATH));
}

int syncFile(int file) {
  return errorOf(::fsync(file));
}

int syncVolume(int folder) {
  return errorOf(::syncfs(folder));
}

} // namespace NS::copycalls
