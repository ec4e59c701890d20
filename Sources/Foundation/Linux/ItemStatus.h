// What stat tells of an item, in the form in which walks pass it on. For
// bodies of the seam only.
#pragma once

#include "Foundation/FTS.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>

namespace NS {

struct FolderID {
  std::uint64_t device;
  std::uint64_t inode;
  friend bool operator==(const FolderID &, const FolderID &) = default;
};

struct FolderIDHash {
  std::size_t operator()(const FolderID &id) const {
    return static_cast<std::size_t>((id.inode ^ (id.device << 40)) * 0x9e3779b97f4a7c15u);
  }
};

inline FolderID idOf(const FTSStat &status) {
  return {status.device, status.inode};
}

// Opens a folder and nothing else, through no link.
inline constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

inline FTSStat statusFrom(const struct stat &found) {
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

// Reads the status of the item itself, never of a link's target. Returns 0 or
// an errno value.
inline int readStatus(int folder, const char *name, FTSStat &status) {
  struct stat found;
  if (::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
    return errno;
  status = statusFrom(found);
  return 0;
}

// Of an open folder.
inline int readStatus(int folder, FTSStat &status) {
  struct stat found;
  if (::fstat(folder, &found) != 0)
    return errno;
  status = statusFrom(found);
  return 0;
}

} // namespace NS
