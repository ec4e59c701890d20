// Copying one item that is not a folder, and what every item carries besides
// its content. For bodies of the seam only. Errors are errno values.
#pragma once

#include <ctime>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace NS {

// What a copy takes over from its original.
struct ItemStatus {
  mode_t mode = 0;
  uid_t owner = 0;
  gid_t group = 0;
  dev_t device = 0; // of the volume that holds the item
  ino_t inode = 0;
  nlink_t links = 0;
  dev_t representedDevice = 0; // of a device node
  off_t size = 0;
  timespec times[2] = {}; // access, modification
  bool isLocked = false;  // immutable or append-only: it cannot be removed
  bool isMountPoint = false;
};

// The item itself, links not followed; an empty name means the folder.
int readStatus(int folder, const char *name, ItemStatus &status);

// Copies the data of an open file; holes stay holes. What is appended to the
// source meanwhile is left out.
int copyData(int source, int target, off_t size);

// Owner, extended attributes (access lists among them), mode and times, from
// one open item to another; handles that only stand for an item will do. What
// the target's volume cannot hold, or this process may not set, is left out;
// the set-ID bits then go with the owner.
int copyMetadata(int source, int target, const ItemStatus &status);

// Makes the item, which must not exist yet, with all of the above.
int copyFile(int sourceFolder, const char *name, int targetFolder, const char *targetName,
             ItemStatus &status);
int copyNode(int sourceFolder, const char *name, int targetFolder, const char *targetName,
             const ItemStatus &status);

} // namespace NS
