// The status of items, the same on both hosts.
#include "Foundation/Walking/POSIX/FolderCalls.h"

#include <cerrno>

namespace NS::foldercalls {
namespace {

int statusFrom(int result, const struct stat &found, FTSStat &status) {
  if (result != 0)
    return errno;
  status.device = static_cast<std::uint64_t>(found.st_dev);
  status.inode = found.st_ino;
  status.mode = found.st_mode;
  status.linkCount = found.st_nlink;
  status.size = found.st_size;
  status.blocks = found.st_blocks;
  status.blockSize = static_cast<std::int32_t>(found.st_blksize);
  return 0;
}

} // namespace

int readStatus(int folder, const char *name, FTSStat &status) {
  struct stat found;
  return statusFrom(::fstatat(folder, name, &found, lookFlags), found, status);
}

int readStatus(int folder, FTSStat &status) {
  struct stat found;
  return statusFrom(::fstat(folder, &found), found, status);
}

} // namespace NS::foldercalls
