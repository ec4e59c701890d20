// The calls on folders that differ between hosts: listing a folder, telling an
// open one from every other, and reading an item's status. Each host has one
// file of bodies. All walks use these calls, and openat, unlinkat and their
// like, which both hosts have. Internal to Foundation.
//
// Functions return 0 or an errno value unless they say otherwise. They are
// thread-safe, except that only one thread at a time may list by one descriptor.
// They block on the disk.
#pragma once

#include "Foundation/Walking/FTS.h"
#include "Foundation/Walking/POSIX/DirectoryRecords.h"

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

// Tells an open folder from all others, and from the same folder seen through
// another mount. A mount of 0 is not known.
struct FolderIdentity {
  FolderID id{0, 0};
  std::uint64_t mount = 0;

  // Tells whether an open folder is this one. An identity of zeros matches no
  // folder.
  bool matches(const FolderIdentity &folder) const {
    return id.inode != 0 && id == folder.id && (mount == 0 || mount == folder.mount);
  }
};

inline FolderID idOf(const FTSStat &status) {
  return {status.device, status.inode};
}

// Opens only a folder, and follows no link.
inline constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

namespace foldercalls {

// Reads the next records of an open folder into the buffer, which is aligned to
// eight bytes. Returns the number of bytes, 0 at the end, -1 with errno set.
long list(int folder, void *buffer, std::size_t size);

// The flags for a look at an item by its name: at the item itself, never at a
// link's target, and without mounting anything.
extern const int lookFlags;
int readStatus(int folder, const char *name, FTSStat &status);
// Reads the status of an open folder.
int readStatus(int folder, FTSStat &status);

// Reads the identity of an open item. When the host does not number its mounts,
// the volume's number takes that place.
int identify(int item, FolderIdentity &identity);

} // namespace foldercalls

} // namespace NS
