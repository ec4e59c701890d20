// The file system for all code above Foundation: tests of existence, listings,
// removal, moving, copying and the Trash.
//
// Paths are POSIX paths with the bytes that the system gave; no call expands
// "~", and a path that holds a NUL byte is an error. Every call blocks until it
// is done. Any thread may use the shared manager, which keeps no state.
// Failures leave an error of CocoaErrorDomain in the slot, with the POSIX error
// underneath (but for a failure of the platform's Trash on macOS, which keeps the
// platform's error alone); success leaves the slot alone.
#pragma once

#include "Foundation/Base/Error.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Files/URL.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace NS {

enum class FileType {
  Regular,
  Directory,
  SymbolicLink,
  Socket,
  CharacterSpecial,
  BlockSpecial,
  Unknown, // includes FIFOs, as on the platform
};

// The attributes of an item; does not follow links.
struct FileAttributes {
  FileType type = FileType::Unknown;
  std::uint64_t size = 0;             // logical bytes
  std::uint32_t posixPermissions = 0; // the twelve mode bits
  std::uint32_t ownerAccountID = 0;
  std::uint32_t groupOwnerAccountID = 0;
  std::uint64_t referenceCount = 0;  // hard links
  std::int64_t modificationTime = 0; // whole seconds since 1970
};

// Bits as the platform numbers them.
enum DirectoryEnumerationOptions : unsigned {
  DirectoryEnumerationNone = 0,
  DirectoryEnumerationSkipsSubdirectoryDescendants = 1,
  DirectoryEnumerationSkipsPackageDescendants = 2, // no effect on hosts without packages
  DirectoryEnumerationSkipsHiddenFiles = 4,
};

// A deep walk below a folder, without the folder itself. Follows no link. Not
// thread-safe. Holds a bounded number of descriptors at any depth.
template <typename Item> class DirectoryEnumerator {
public:
  virtual ~DirectoryEnumerator() = default;
  // Returns the next item; empty at the end. A folder comes before its
  // contents; an unreadable folder yields no items beneath it. When a folder is
  // moved during the walk in it, the walk leaves out its rest, logs a line, and
  // goes on with the others.
  virtual std::optional<Item> nextObject() = 0;
  // The depth of the last item: 1 for a direct child.
  virtual std::uint64_t level() const = 0;
  // Does not descend into the last item.
  virtual void skipDescendants() = 0;
};

using PathEnumerator = DirectoryEnumerator<std::string>; // paths relative to the root
using URLEnumerator = DirectoryEnumerator<URL>;

class FileManager : public SharedInstance<FileManager> {
public:
  virtual ~FileManager() = default;

  static FileManager &defaultManager() { return shared(); }
  static FileManager &real();

  // Both follow a final link: a dangling one does not exist, and is not a folder.
  virtual bool fileExistsAtPath(const std::string &path) = 0;
  virtual bool fileExistsAtPath(const std::string &path, bool &isDirectory) = 0;
  // Both decide by the effective user and group, and follow a final link. A
  // folder that may be searched is executable.
  virtual bool isReadableFileAtPath(const std::string &path) = 0;
  virtual bool isExecutableFileAtPath(const std::string &path) = 0;

  // The names in the order of the folder, without "." and "..".
  virtual std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string &path,
                                                                            ErrorSlot error) = 0;
  virtual std::optional<std::vector<URL>>
  contentsOfDirectoryAtURL(const URL &url, DirectoryEnumerationOptions options,
                           ErrorSlot error) = 0;
  // Never null. Yields no items for a path without a readable folder. Follows a
  // final link.
  virtual std::unique_ptr<PathEnumerator> enumeratorAtPath(const std::string &path) = 0;
  virtual std::unique_ptr<URLEnumerator> enumeratorAtURL(const URL &url,
                                                         DirectoryEnumerationOptions options) = 0;

  virtual std::optional<FileAttributes> attributesOfItemAtPath(const std::string &path,
                                                               ErrorSlot error) = 0;
  // The text of a link, relative or absolute; fails for any other item.
  virtual std::optional<std::string> destinationOfSymbolicLinkAtPath(const std::string &path,
                                                                     ErrorSlot error) = 0;

  // The four operations below count items in the current progress. When that is
  // cancelled they stop at their next item with UserCancelledError and leave
  // the same state as a failure there. FileNoSuchFileError concerns only the
  // requested item, never an item that vanished beneath it.

  // Removes the item and all items beneath it. A folder that is exchanged for a
  // link meanwhile cannot lead it outside. It holds a constant number of
  // descriptors at any depth, and its memory does not grow with the contents of
  // a folder. Several threads remove folders; all stop at the first item that
  // cannot be removed: earlier items are gone, the rest is untouched. Items
  // that vanish meanwhile count as removed. A mount point, inside the tree or
  // at its root, fails with EBUSY. It refuses "/" and a path ending in "." or
  // "..". Here and in the moves trailing slashes are ignored: "link/" is the
  // link.
  virtual bool removeItemAtPath(const std::string &path, ErrorSlot error) = 0;
  virtual bool removeItemAtURL(const URL &url, ErrorSlot error) = 0;

  // Renames without replacing: an existing destination fails with
  // FileWriteFileExistsError. Across volumes it copies (mode, owner, times,
  // extended attributes, links, holes; not the file flags) and then deletes. It
  // builds the copy near the destination, syncs it to the disk and renames it
  // into place, so that the destination is never there in part. Until then the
  // source stays whole, and a failed copy is removed again. It leaves out
  // attributes of an item that the new volume cannot hold, with one line in the
  // log for all of them, and the copy opens access to no further user.
  //
  // Refuses before any copying a source that could not be deleted afterwards:
  // on a read-only volume, or in an append-only or immutable folder. It refuses
  // locked items and mount points when it meets them. It deletes only items
  // that it has copied in their present state: a source that others changed
  // meanwhile fails (EBUSY) and stays. When the deletion fails even so, the
  // complete copy stays beside the rest of the source. Items that vanish
  // meanwhile count as moved.
  virtual bool moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                              ErrorSlot error) = 0;
  virtual bool moveItemAtURL(const URL &srcURL, const URL &dstURL, ErrorSlot error) = 0;
  // Makes the same copy, volumes mounted inside included. An existing
  // destination fails; a failed copy is removed.
  virtual bool copyItemAtPath(const std::string &srcPath, const std::string &dstPath,
                              ErrorSlot error) = 0;

  // With intermediates an existing folder is success; without, it is
  // FileWriteFileExistsError. The mode is 0777 less the process's mask.
  virtual bool createDirectoryAtPath(const std::string &path, bool withIntermediateDirectories,
                                     ErrorSlot error) = 0;
  virtual bool createDirectoryAtURL(const URL &url, bool withIntermediateDirectories,
                                    ErrorSlot error) = 0;

  // Moves the item to the Trash of the process's user or of its volume.
  virtual bool trashItemAtURL(const URL &url, ErrorSlot error) = 0;
};

} // namespace NS
