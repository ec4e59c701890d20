// The calls on single items that differ between hosts: status, file flags,
// removal, renaming and the path of an open folder. Each host has one file of
// bodies. Internal to Foundation.
//
// An item is named by an open folder and a name in it, or, with an empty name,
// by its own descriptor. Functions return 0 or an errno value. They are
// thread-safe, and block on the disk.
#pragma once

#include "Foundation/Files/FileFlags.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <sys/types.h>

namespace NS {

// The attributes that a copy takes over from its original, and those that show
// whether the original has changed since.
struct ItemStatus {
  mode_t mode = 0;
  uid_t owner = 0;
  gid_t group = 0;
  std::uint64_t device = 0; // of the volume that holds the item
  std::uint64_t inode = 0;
  std::uint64_t links = 0;
  dev_t representedDevice = 0; // of a device node
  off_t size = 0;
  timespec times[2] = {};  // access, modification
  timespec changed = {};   // the last change of data, attributes or names
  timespec born = {};      // zero when the volume does not keep it
  std::uint32_t flags = 0; // of FileFlags
  bool isMountPoint = false;

  bool isImmutable() const { return (flags & (UF_IMMUTABLE_FLAG | SF_IMMUTABLE_FLAG)) != 0; }
  bool isAppendOnly() const { return (flags & (UF_APPEND_FLAG | SF_APPEND_FLAG)) != 0; }
  // Neither it nor its contents can be removed.
  bool isLocked() const { return isImmutable() || isAppendOnly(); }
};

// Whether the name of a link means the link or its target.
enum class Links { Take, Follow };

namespace itemcalls {

// Opens a folder in order to work in it by its descriptor, not to list it.
extern const int placeFlags;

// Reads the status without mounting anything.
int readStatus(int folder, const char *name, Links links, ItemStatus &status);

// Clears the flags of the mask of a file or folder, and leaves all others.
// EOPNOTSUPP for another item that has such a flag; it opens no device and
// waits for no FIFO.
int clearFlags(int folder, const char *name, Links links, std::uint32_t mask);

// Removes an item that is not a folder; EISDIR for a folder.
int unlink(int folder, const char *name);

// Renames atomically and replaces nothing: EEXIST when the new name is in use.
// ENOTSUP when the volume may not be able to do so.
int renameExclusively(int folder, const char *name, int newFolder, const char *newName);

// Reads the absolute path at which the system last saw an open folder.
int readPath(int folder, std::string &path);

} // namespace itemcalls

} // namespace NS
