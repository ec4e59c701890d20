// The calls of copying that differ between hosts. Each host has one file of
// bodies; AttributeCopy.h has the call for extended attributes. Internal to
// Foundation.
//
// A node is an item without data: a link, a FIFO, a socket or a device. A host
// refers to it by a descriptor that does not open it. Functions return 0 or an
// errno value unless they say otherwise. They are thread-safe, and block on the
// disk.
#pragma once

#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Files/POSIX/ItemCalls.h"

#include <cstddef>
#include <ctime>
#include <string>
#include <sys/types.h>

namespace NS::copycalls {

// Makes a file that shares the data of an open one until either changes; it
// also has its extended attributes and mode, and no flags. Fails when the
// volumes cannot do so.
int cloneFile(int source, int folder, const char *name);

// Copies up to so many bytes of data between open files without reading them
// into memory. Returns their number or -1 with errno set, as when the host or
// the volumes cannot do so.
ssize_t copyRange(int source, int target, off_t start, std::size_t length);

// The clock by which the kernel sets a file's time of change.
extern const clockid_t changeClock;

// Makes a descriptor that refers to a node without opening it. Empty with errno
// set on failure, ENOTSUP for nodes that the host does not copy.
Descriptor openNode(int folder, const char *name);
// Reads where a link leads, by the descriptor of the link and its name. ESTALE
// when the name means another item by now.
int readLink(int link, int folder, const char *name, std::string &target);
// Makes a FIFO, socket or device for its owner alone.
int makeNode(int folder, const char *name, const ItemStatus &like);

// Describe an open item or a node; a link has no mode.
int setOwner(int item, uid_t owner, gid_t group);
int setMode(int item, mode_t mode);
int setTimes(int item, const timespec (&accessAndModification)[2]);

// Writes the data of an open file to the disk.
int syncFile(int file);
// Writes all data of the volume that holds the open folder to the disk.
int syncVolume(int folder);

} // namespace NS::copycalls
