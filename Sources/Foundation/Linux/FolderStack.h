// The chain of folders from the root of a walk down to where it stands, by
// descriptors alone: no path is ever looked up, so a folder swapped for a link
// cannot lead the walk elsewhere and no depth is too deep. For bodies of the
// seam only.
//
// Only the lowest few folders are kept open. An upper one is opened again
// through ".." when the walk comes back to it, and the walk ends when that is
// no longer the folder it came down through. Memory is one small record and
// the name of each folder of the chain, whatever the folders hold.
//
// Not thread-safe.
#pragma once

#include "Foundation/Linux/TreeOutcome.h"
#include "Foundation/POSIX/Descriptor.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace NS {

// Whether a walk goes on where another volume (or another view of the same
// one) is mounted.
enum class MountPoints { Refuse, Enter };

// In which order a folder's entries come. Where each is removed as it comes,
// ByInode spares a volume with a great many of them the to and fro between its
// tables: files by their numbers, folders after the files, some tens of
// thousands at a time. Entries that are not removed may then come again.
enum class EntryOrder { AsListed, ByInode };

struct FolderEntry {
  const char *name = nullptr; // valid until the stack next moves or reads
  std::uint64_t inode = 0;
  unsigned char type = 0; // DT_*, DT_UNKNOWN where the volume does not tell
};

class FolderStack {
public:
  // How many folders are open at most, but for one more while moving.
  static constexpr std::size_t window = 6;

  explicit FolderStack(MountPoints mountPoints, EntryOrder order = EntryOrder::AsListed)
      : mountPoints_(mountPoints), order_(order) {}

  // Goes into a folder of the given one (at the start) or of the lowest. Never
  // through a link: ELOOP or ENOTDIR when the name is no folder, EBUSY for a
  // refused mount point, EDEADLK for a folder that the walk is already in.
  StepOutcome openRoot(int parent, const char *name);
  StepOutcome enter(const char *name);
  // Goes in by an open descriptor of the folder; its links were followed.
  StepOutcome openRoot(Descriptor folder);

  // Reads on in the lowest folder: null at its end or on failure.
  const FolderEntry *next(StepOutcome &outcome);
  // Starts reading the lowest folder anew.
  StepOutcome rewind();

  // Goes back up. The lowest folder is closed even on failure; ESTALE when the
  // folder above is no longer the one that the walk came through.
  StepOutcome leave();

  // After a failed leave, for a walk that goes on with what it can reach: goes
  // up to the lowest folder that the names still lead to from the root, of which
  // a descriptor is given, and tells of each folder that is given up on the way
  // by its path below the root. False, with nothing left, when not even the root
  // can be read.
  using LossHandler = std::function<void(const std::string &pathBelowRoot)>;
  bool findAgain(const Descriptor &root, const LossHandler &lost);

  bool empty() const { return frames_.empty(); }
  std::size_t depth() const { return frames_.size(); }
  // The lowest folder's descriptor and its name in the folder above.
  int folder() const { return frames_.back().descriptor.get(); }
  const char *folderName() const { return names_.c_str() + frames_.back().name; }
  // The names from below the root to the lowest folder, joined by slashes;
  // empty for the root itself.
  std::string pathBelowRoot() const;
  // The path of an item in the lowest folder, by that of the root. Without a
  // name, of the folder itself.
  std::string pathOf(const std::string &root, const std::string &name) const;
  // How often the lowest folder was entered again after it had been left; for
  // the walk to count.
  unsigned &revisits() { return frames_.back().revisits; }

private:
  static constexpr std::size_t bufferSize = 64 * 1024;
  struct Buffer {
    alignas(8) std::array<std::byte, bufferSize> bytes;
  };
  // A long part of one folder's listing, in the order in which it is given. One
  // folder at a time has it; those that find it taken go by the listing.
  struct LongListing {
    static constexpr std::size_t none = ~std::size_t{0};
    std::size_t owner = none; // index of the frame
    std::unique_ptr<std::byte[]> bytes;
    std::vector<std::uint32_t> files; // where the records begin
    std::vector<std::uint32_t> folders;
    std::size_t next = 0; // of the files, then of the folders
  };
  struct Identity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t mount = 0; // the device where the host does not number mounts
    friend bool operator==(const Identity &, const Identity &) = default;
  };
  struct Frame {
    Identity identity;
    std::size_t name = 0;           // where it begins in names_
    std::int64_t offset = 0;        // the position behind the entry given last
    Descriptor descriptor;          // closed while the folder is above the window
    std::unique_ptr<Buffer> buffer; // what was read and not given yet
    std::uint32_t position = 0;
    std::uint32_t filled = 0;
    unsigned revisits = 0;
  };

  static StepOutcome identify(int folder, Identity &identity);
  void push(Descriptor folder, const Identity &identity, const char *name);
  int checkMount(const Identity &above, const Identity &folder) const;
  int reopenThrough(const Descriptor &below);
  bool isFolderOf(const Frame &frame, const Descriptor &folder) const;
  Descriptor openByNames(const Descriptor &root, std::size_t &index) const;
  int fill(Frame &frame);
  void fillLong(Frame &frame);
  const FolderEntry *nextLong(Frame &frame);
  void endLong();
  bool isLong(const Frame &frame) const {
    return static_cast<std::size_t>(&frame - frames_.data()) == long_.owner;
  }
  const FolderEntry *give(const std::byte *record);
  void closeUpper(Frame &frame);
  void recycle(Frame &frame);

  MountPoints mountPoints_;
  EntryOrder order_;
  std::vector<Frame> frames_;
  std::string names_;          // NUL-terminated, one after the other
  std::size_t lowestOpen_ = 0; // frames before this one are closed
  std::vector<std::unique_ptr<Buffer>> spareBuffers_;
  LongListing long_;
  FolderEntry entry_;
};

} // namespace NS
