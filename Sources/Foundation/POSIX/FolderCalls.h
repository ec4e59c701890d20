// What the hosts do differently with folders: how one is listed, how an open
// one is told from every other, and how an item's status is had. Each host has
// one file of bodies; all that walks stands on these calls and on openat,
// unlinkat and their like, which both hosts have. For bodies of the seam only.
//
// Functions give 0 or an errno value unless they say otherwise. Thread-safe as
// far as the descriptors are.
#pragma once

#include "Foundation/FTS.h"
#include "Foundation/POSIX/DirectoryRecords.h"

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

// What tells an open folder from every other view of it as well. No mount means
// that it is not known.
struct FolderIdentity {
  FolderID id{0, 0};
  std::uint64_t mount = 0;

  // Whether an open folder is this one. An identity that could not be had is
  // that of no folder.
  bool matches(const FolderIdentity &folder) const {
    return id.inode != 0 && id == folder.id && (mount == 0 || mount == folder.mount);
  }
};

inline FolderID idOf(const FTSStat &status) {
  return {status.device, status.inode};
}

// Opens a folder and nothing else, through no link.
inline constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

namespace foldercalls {

// Reads the next records of an open folder into the buffer, which is aligned to
// eight bytes. How many bytes they fill, 0 at the end, -1 with errno set.
long list(int folder, void *buffer, std::size_t size);

// With which an item is looked at by its name: itself, never what a link stands
// for, and nothing is mounted by the look.
extern const int lookFlags;
int readStatus(int folder, const char *name, FTSStat &status);
// Of an open folder.
int readStatus(int folder, FTSStat &status);

// Of an open item. Where the host does not number its mounts, the volume's
// number stands for the mount's.
int identify(int item, FolderIdentity &identity);

} // namespace foldercalls

} // namespace NS
