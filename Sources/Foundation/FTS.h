// Walks over a file hierarchy, entry by entry, with the sequence, the flags
// and the fields of the C library's fts, but without its limits: any depth,
// paths of any length, a bounded number of descriptors and bounded memory.
//
// A stream belongs to one thread at a time; any number of streams may run at
// once. Nothing changes the working folder, follows a link or leaves the tree:
// every step is taken relative to the folder that holds the item.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace NS {

// Options of a walk, to be combined; the numbers are the C library's.
namespace FTSOption {
inline constexpr int NOCHDIR = 0x004;  // accepted and always so
inline constexpr int NOSTAT = 0x008;   // no stat of what is no folder
inline constexpr int PHYSICAL = 0x010; // links are items of their own; required
inline constexpr int XDEV = 0x040;     // do not descend into another volume
} // namespace FTSOption

// What an entry is; the numbers are the C library's.
enum class FTSInfo : std::uint8_t {
  D = 1,       // a folder, before what it holds
  DC = 2,      // a folder that is its own ancestor; not descended into
  DEFAULT = 3, // a FIFO, socket or device
  DNR = 4,     // a folder that cannot be read, in place of DP
  DP = 6,      // a folder, after what it holds
  ERR = 7,     // a folder that could not be read to its end, in place of DP
  F = 8,       // a regular file
  NS = 10,     // an item of which stat failed
  NSOK = 11,   // no folder; nobody asked for stat
  SL = 12,     // a symbolic link
  SLNONE = 13, // a link to nothing, which a physical walk does not look for
};

enum class FTSInstruction : std::uint8_t { SKIP = 4 };

// The part of stat that the rooms above look at.
struct FTSStat {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t mode = 0;
  std::uint64_t linkCount = 0;
  std::int64_t size = 0;      // logical bytes
  std::int64_t blocks = 0;    // allocated, in units of 512 bytes
  std::int32_t blockSize = 0; // preferred for I/O, bytes
};

// One entry as read() gives it. It stays valid until the next read(), that of
// a folder until its second visit is over: both visits and every item beneath
// see the same object.
struct FTSEntry {
  // From the path that was opened down to the item. NUL-terminated in the
  // entry that read() returned last.
  std::string_view path;
  // The last component; that of the root is its path after the last slash.
  std::string_view name;
  FTSInfo info = FTSInfo::D;
  int errnum = 0; // with DNR, ERR and NS
  int level = 0;  // 0 for the root, -1 for the root's parent
  // For the caller's own use; 0 at the first visit and never touched again.
  std::int64_t number = 0;
  // The folder above; that of the root is a mere place holder. Never null in
  // an entry that read() returned.
  FTSEntry *parent = nullptr;
  // All zero with NS and NSOK. Taken once, before the first visit.
  FTSStat statp;
};

class FTSStream {
public:
  // Closes a stream that is still open.
  virtual ~FTSStream() = default;

  // The next entry, owned by the stream; null at the end, once closed, or when
  // the walk was given up. Counts each item at its first visit into the current
  // progress, with the bytes allocated to it where they are known.
  // Entries of one folder come in the order in which the volume lists them.
  virtual FTSEntry *read() = 0;
  // Why the walk was given up before its end, 0 if it was not: ECANCELED when
  // the current request was cancelled; EMFILE, ENFILE or ENOMEM when descriptors
  // or memory ran out and did not come back within some seconds. What was read
  // so far is then not the whole.
  virtual int failure() const { return 0; }
  // SKIP for a folder just read as D: its contents are passed over and its
  // second visit comes next.
  virtual void set(FTSEntry &entry, FTSInstruction instruction) = 0;
  // Gives every descriptor back. Closing twice does nothing. May raise
  // NS::Exception.
  virtual void close() = 0;
};

class FTS {
public:
  virtual ~FTS() = default;
  static FTS &shared();
  static FTS *exchangeShared(FTS *replacement);

  // A stream over one root, no comparison function. A root that does not
  // exist is no failure: it reads as NS. Null with errno set for an empty
  // path, one with a NUL inside and for options that are not served.
  virtual std::unique_ptr<FTSStream> open(const std::string &path, int options) = 0;
  // The same for a caller who will skip nothing: other threads may read folders
  // that the stream has not come to yet. Entries and their order are those of
  // open; each stands for its item as it was at some time since the opening.
  virtual std::unique_ptr<FTSStream> openForAll(const std::string &path, int options) {
    return open(path, options);
  }
};

} // namespace NS
