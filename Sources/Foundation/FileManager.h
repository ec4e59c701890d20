// The file system as the rooms above see it: tests of existence, listings,
// removal, moving, copying and the Trash.
//
// Paths are POSIX paths with the bytes that the system gave; nothing expands
// "~", and a path that holds a NUL byte is an error. Every call blocks until it
// is done. The shared manager may be used from
// any thread; it keeps no state. Failures leave an error of CocoaErrorDomain
// in the slot, with the POSIX error underneath; a slot is untouched on success.
#pragma once

#include "Foundation/Error.h"
#include "Foundation/URL.h"

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
  Unknown, // FIFOs among them, as on the platform
};

// What an item is, links not followed.
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

// A deep walk below a folder, the folder itself excluded, links not followed.
// Not thread-safe. Holds a bounded number of descriptors at any depth.
template <typename Item> class DirectoryEnumerator {
public:
  virtual ~DirectoryEnumerator() = default;
  // The next item, nothing at the end. A folder comes before what it holds;
  // a folder that cannot be read yields nothing beneath it. Of a folder that is
  // moved while the walk is in it the rest is left out, with a line in the log;
  // the walk goes on with the others.
  virtual std::optional<Item> nextObject() = 0;
  // The depth of the item given last: 1 for a direct child.
  virtual std::uint64_t level() const = 0;
  // Does not descend into the item given last.
  virtual void skipDescendants() = 0;
};

using PathEnumerator = DirectoryEnumerator<std::string>; // paths relative to the root
using URLEnumerator = DirectoryEnumerator<URL>;

class FileManager {
public:
  virtual ~FileManager() = default;

  static FileManager &defaultManager();
  static FileManager *exchangeShared(FileManager *replacement);

  // Follow a final link: a dangling one does not exist, and is no folder.
  virtual bool fileExistsAtPath(const std::string &path) = 0;
  virtual bool fileExistsAtPath(const std::string &path, bool &isDirectory) = 0;
  // By the effective identity; a folder that may be searched is executable.
  virtual bool isReadableFileAtPath(const std::string &path) = 0;
  virtual bool isExecutableFileAtPath(const std::string &path) = 0;

  // Names in the order of the folder, "." and ".." left out.
  virtual std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string &path,
                                                                            ErrorSlot error) = 0;
  virtual std::optional<std::vector<URL>>
  contentsOfDirectoryAtURL(const URL &url, DirectoryEnumerationOptions options,
                           ErrorSlot error) = 0;
  // Never null: a path at which no readable folder stands (a final link is
  // followed) yields nothing.
  virtual std::unique_ptr<PathEnumerator> enumeratorAtPath(const std::string &path) = 0;
  virtual std::unique_ptr<URLEnumerator> enumeratorAtURL(const URL &url,
                                                         DirectoryEnumerationOptions options) = 0;

  virtual std::optional<FileAttributes> attributesOfItemAtPath(const std::string &path,
                                                               ErrorSlot error) = 0;
  virtual std::optional<std::string> destinationOfSymbolicLinkAtPath(const std::string &path,
                                                                     ErrorSlot error) = 0;

  // The four operations below count items in the current progress. When that is
  // cancelled they stop at their next item with UserCancelledError, leaving what
  // a failure there leaves. FileNoSuchFileError is said of the item asked about
  // alone, never of what vanished beneath it.

  // Removes the item and all beneath it. A folder swapped for a link meanwhile
  // cannot lead outside; a constant number of descriptors is held at any depth,
  // and memory does not grow with what a folder holds. Folders are removed
  // several at a time; all stop at the first item that cannot be removed: what
  // came before is gone, the rest is untouched. What vanishes meanwhile counts
  // as removed. A mount point, inside the tree or at its root, fails with EBUSY;
  // "/" and a path ending in "." or ".." are refused. Trailing slashes are
  // ignored here and in the moves: "link/" is the link.
  virtual bool removeItemAtPath(const std::string &path, ErrorSlot error) = 0;
  virtual bool removeItemAtURL(const URL &url, ErrorSlot error) = 0;

  // Renames without replacing: an existing destination fails with
  // FileWriteFileExistsError. Across volumes copies (mode, owner, times,
  // extended attributes, links, holes; not the file flags) and then deletes.
  // The copy is built near the destination, brought to the disk and renamed
  // into place, so that the destination is never there in part; until then the
  // source stays whole, and a failed copy is removed again. Whatever describes
  // an item and its new volume cannot hold is left out, with one line of the log
  // for all, and the copy lets nobody in whom the original kept out.
  //
  // Refuses before any copying what could not be deleted afterwards: a
  // read-only volume, an append-only or immutable folder; and on meeting them
  // locked items and mount points. Deletes nothing but what it has copied as it
  // is: a source that others changed meanwhile fails (EBUSY) and stays. When
  // deleting fails all the same, the complete copy stays beside what is left of
  // the source. What vanishes meanwhile counts as moved.
  virtual bool moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                              ErrorSlot error) = 0;
  virtual bool moveItemAtURL(const URL &srcURL, const URL &dstURL, ErrorSlot error) = 0;
  // The same copy, volumes mounted inside included. An existing destination
  // fails; a failed copy is removed.
  virtual bool copyItemAtPath(const std::string &srcPath, const std::string &dstPath,
                              ErrorSlot error) = 0;

  // With intermediates an existing folder is success; without, it is
  // FileWriteFileExistsError. Mode 0777 less the process's mask.
  virtual bool createDirectoryAtPath(const std::string &path, bool withIntermediateDirectories,
                                     ErrorSlot error) = 0;
  virtual bool createDirectoryAtURL(const URL &url, bool withIntermediateDirectories,
                                    ErrorSlot error) = 0;

  // Puts the item in the Trash of the process's user or of its volume.
  virtual bool trashItemAtURL(const URL &url, ErrorSlot error) = 0;
};

} // namespace NS
