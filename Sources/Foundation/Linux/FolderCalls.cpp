// Folders by getdents64 and fstatat.
#include "Foundation/POSIX/FolderCalls.h"

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

namespace NS::foldercalls {
namespace {

FTSStat statusFrom(const struct stat &found) {
  FTSStat status;
  status.device = found.st_dev;
  status.inode = found.st_ino;
  status.mode = found.st_mode;
  status.linkCount = found.st_nlink;
  status.size = found.st_size;
  status.blocks = found.st_blocks;
  status.blockSize = static_cast<std::int32_t>(found.st_blksize);
  return status;
}

} // namespace

long list(int folder, void *buffer, std::size_t size) {
  return ::syscall(SYS_getdents64, folder, buffer, size);
}

int readStatus(int folder, const char *name, FTSStat &status) {
  struct stat found;
  if (::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
    return errno;
  status = statusFrom(found);
  return 0;
}

int readStatus(int folder, FTSStat &status) {
  struct stat found;
  if (::fstat(folder, &found) != 0)
    return errno;
  status = statusFrom(found);
  return 0;
}

} // namespace NS::foldercalls
