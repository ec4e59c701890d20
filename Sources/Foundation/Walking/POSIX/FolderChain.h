// The chain of folders from the root of a walk down to its place, by
// descriptors alone. All walks through trees use it: those that measure,
// search, list, remove, unlock, shred and copy. Internal to Foundation.
//
// It never looks up a path. It opens each folder in the one above, through no
// link, so that a folder swapped for a link cannot lead the walk outside, and
// no depth is too deep. Only the lowest folders are open. When the walk comes
// back to an upper folder that was closed, the chain opens it through ".." and
// accepts it only with the same identity. When that fails, the names lead from
// the root to as many folders of the chain as are still in their places.
//
// Listed records that were not returned yet stay on one stack for all folders
// of the chain: the lowest folder's are on top. When the stack has grown large,
// the chain forgets the records of an upper folder as the walk goes down from
// it, and later lists them again after the last entry. So memory is bounded,
// apart from a small record and the name of each folder of the chain.
//
// When the process has no descriptor left, the chain asks others to release
// some, closes its own upper folders, and then waits a while, before it fails.
//
// Not thread-safe.
#pragma once

#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Walking/Exhaustion.h"
#include "Foundation/Walking/Internal/TreeOutcome.h"
#include "Foundation/Walking/POSIX/DirectoryRecords.h"
#include "Foundation/Walking/POSIX/FolderCalls.h"
#include "Foundation/Walking/POSIX/LongListing.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace NS {

// Whether a walk enters a place where another volume (or another view of the
// same one) is mounted.
enum class MountPoints {
  Refuse,
  Enter,  // except a folder that the walk is already in
  Ignore, // enter too; the walk itself looks for folders that it is already in
};

// The order of a folder's entries. When the walk removes each entry at once,
// ByInode spares a volume with very many of them the movement between its
// tables: files by their numbers, folders after the files, some tens of
// thousands at a time.
enum class EntryOrder { AsListed, ByInode };

struct ChainRules {
  MountPoints mountPoints = MountPoints::Enter;
  EntryOrder order = EntryOrder::AsListed;
  // The most of the lowest folders that are open, and one more during a move.
  std::size_t window = 6;
  bool keepsRoot = false; // open besides these
};

struct FolderEntry {
  const char *name = nullptr; // valid until the chain next moves or reads
  std::uint64_t inode = 0;
  unsigned char type = 0; // DT_*, or DT_UNKNOWN when the volume does not tell
};

class FolderChain {
public:
  explicit FolderChain(const ChainRules &rules) : rules_(rules) {}

  // Go into a folder: the first into one of the given folder, at the start; the
  // second into one of the lowest folder. Both go through no link: ELOOP or
  // ENOTDIR when the name is not that of a folder, EBUSY for a refused mount
  // point, EDEADLK for a folder that the walk is already in.
  StepOutcome openRoot(int parent, const char *name);
  StepOutcome enter(const char *name);
  // Enters by an open descriptor of the folder, which may have been opened
  // through links.
  StepOutcome openRoot(Descriptor folder);

  // Adds a folder with this identity to the chain, without opening it. The name of
  // the root is its path.
  void add(const char *name, const FolderID &id);
  // Opens the lowest folder, if it was only added.
  StepOutcome open();
  // Opens the lowest folder by the names from the root, which stays open. ENOENT
  // when they do not lead to it, or did not lead to one above it when the chain
  // last looked. Only for a chain that keeps its root.
  StepOutcome reopen();

  // Reads on in the lowest folder: null at its end or on failure.
  const FolderEntry *next(StepOutcome &outcome);
  // Lists the lowest folder from after the entry that had this position.
  void goOnFrom(std::int64_t position);
  // Ends the listing of the lowest folder.
  void endListing();
  // Tells whether an entry of the lowest folder is a folder; asks if the volume
  // did not tell.
  bool isFolder(const FolderEntry &entry) const;

  // Goes back up. Closes the lowest folder even on failure; ESTALE when the
  // folder above is no longer the one that the walk came through.
  StepOutcome leave();
  // The same for a walk that no longer needs the folder above, or reopens it.
  void drop();

  // After a failed leave, for a walk that keeps the root and goes on with the
  // folders that it can reach: goes up to the lowest folder that the names
  // still lead to. When it gives up folders on the way, it calls the handler once,
  // with the path of the uppermost of them below the root, and its fate:
  // "was moved", or "cannot be reached" with the cause. False, with no folder
  // left, when even the root cannot be read.
  using LossHandler =
      std::function<void(const std::string &pathBelowRoot, const std::string &fate)>;
  bool findAgain(const LossHandler &lost);
  void clear();

  bool empty() const { return links_.empty(); }
  std::size_t depth() const { return links_.size(); }
  bool isOpen() const { return static_cast<bool>(links_.back().descriptor); }
  // The lowest folder's descriptor and its name in the folder above.
  int folder() const { return links_.back().descriptor.get(); }
  const char *folderName() const { return nameOf(links_.back()); }
  // The names from below the root to the lowest folder, joined by slashes;
  // empty for the root itself.
  std::string pathBelowRoot() const;
  // The path of an item in the lowest folder, by that of the root. Without a
  // name, of the folder itself.
  std::string pathOf(const std::string &root, const std::string &name) const;
  // The number of times that the walk entered the lowest folder again after it
  // had left it; the walk counts.
  unsigned &revisits() { return links_.back().revisits; }

  // The chain calls it when no descriptor is left. Returns whether it released
  // any.
  using Reliever = std::function<bool()>;
  void setReliever(Reliever reliever) { relieve_ = std::move(reliever); }

private:
  struct Link {
    FolderIdentity identity;
    bool isIdentified = false; // by the open folder
    bool isAtEnd = false;      // the volume has no more records
    bool isElsewhere = false;  // the descriptor is not at the position
    unsigned revisits = 0;
    std::size_t name = 0;      // its beginning in names_
    std::int64_t position = 0; // after the last entry
    // Unread records: [cursor, end) of the stack, those of the folder from base.
    std::size_t base = 0;
    std::size_t cursor = 0;
    std::size_t end = 0;
    Descriptor descriptor; // none while the folder is closed
  };

  const char *nameOf(const Link &link) const { return names_.c_str() + link.name; }
  Descriptor openWithin(int folder, const char *name);
  StepOutcome push(Descriptor folder, const char *name);
  int checkMount(const FolderIdentity &folder) const;
  void append(const char *name, const FolderIdentity &identity);
  bool isKept(std::size_t index) const { return index == 0 && rules_.keepsRoot; }
  void setOpen(std::size_t index, Descriptor folder);
  void close(Link &link);
  bool closeUppermost();
  int reopenThrough(const Descriptor &below);
  int reopenAt(std::size_t index);
  Descriptor openByNames(std::size_t &index);

  int fill(Link &link);
  long list(Link &link, std::size_t size);
  const DirectoryRecord *nextRecord(Link &link);
  static void forgetUnread(Link &link);
  void forgetManyUnread(Link &link);
  void beginLong(Link &link, std::size_t filled);
  void endLong(const Link &link);
  bool hasLong(const Link &link) const { return longListing_.isOf(indexOf(link)); }
  std::size_t indexOf(const Link &link) const {
    return static_cast<std::size_t>(&link - links_.data());
  }

  static constexpr std::size_t none = ~std::size_t{0};

  ChainRules rules_;
  Reliever relieve_;
  Patience patience_;
  std::vector<Link> links_;
  std::string names_;          // NUL-terminated, one after the other
  std::size_t open_ = 0;       // links with a descriptor, without a root that is kept
  std::size_t lowestOpen_ = 0; // no link before this one is among them
  // The uppermost link that the names did not lead to; they lead to none below it.
  std::size_t firstLost_ = none;
  RecordStack records_;
  LongListing longListing_;
  FolderEntry entry_;
};

} // namespace NS
