// Numbered names, and locks on the items themselves: the kernel releases a lock
// at any end of its process.
#include "Foundation/Files/POSIX/TemporaryNames.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <random>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {

std::string temporaryName(const char *prefix, unsigned slot) {
  char number[24];
  if (slot < temporarySlots) {
    std::snprintf(number, sizeof number, "%02u", slot);
  } else {
    std::random_device random;
    std::snprintf(number, sizeof number, "%08x%08x", random(), random());
  }
  return std::string(prefix) + number;
}

int takeOver(int folder, const std::string &name, int item, uid_t owner) {
  if (::flock(item, LOCK_EX | LOCK_NB) != 0)
    return errno;
  struct stat held, named;
  if (::fstat(item, &held) != 0 ||
      ::fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT ? ESTALE : errno;
  bool isOurs = held.st_uid == ::geteuid() || held.st_uid == owner;
  bool isNamed = held.st_dev == named.st_dev && held.st_ino == named.st_ino;
  return isOurs && isNamed ? 0 : ESTALE;
}

} // namespace NS
