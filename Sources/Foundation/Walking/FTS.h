// Walks over a file hierarchy, entry by entry, with the sequence, the flags and
// the fields of the C library's fts, but without its limits: any depth, paths
// of any length, a bounded number of descriptors and bounded memory.
//
// A stream belongs to one thread at a time; any number of streams may run at
// once. No call changes the working folder, follows a link or leaves the tree:
// the walk takes every step relative to the folder that holds the item.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace NS {

// Options of a walk, to be combined; the numbers are the C library's.
namespace FTSOption {
inline constexpr int NOCHDIR = 0x004;  // accepted and always so
inline constexpr int NOSTAT = 0x008;   // no stat of items other than folders
inline constexpr int PHYSICAL = 0x010; // links are items of their own; required
inline constexpr int XDEV = 0x040;     // do not descend into another volume
} // namespace FTSOption

// The kind of an entry; the numbers are the C library's.
enum class FTSInfo : std::uint8_t {
  D = 1,       // a folder, before its contents
  DC = 2,      // a folder that is its own ancestor; not descended into
  DEFAULT = 3, // a FIFO, socket or device
  DNR = 4,     // a folder that cannot be read, in place of DP
  DP = 6,      // a folder, after its contents
  ERR = 7,     // a folder that could not be read to its end, in place of DP
  F = 8,       // a regular file
  NS = 10,     // an item for which stat failed
  NSOK = 11,   // not a folder, and no stat requested
  SL = 12,     // a symbolic link
  SLNONE = 13, // a dangling link; a physical walk never reports it
};

enum class FTSInstruction : std::uint8_t { SKIP = 4 };

// The part of stat that callers need.
struct FTSStat {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t mode = 0;
  std::uint64_t linkCount = 0;
  std::int64_t size = 0;      // logical bytes
  std::int64_t blocks = 0;    // allocated, in units of 512 bytes
  std::int32_t blockSize = 0; // preferred for I/O, bytes

  std::uint64_t allocatedBytes() const { return static_cast<std::uint64_t>(blocks) * 512; }
};

// Totals of hostile trees may pass any limit; they wrap instead of trapping.
inline std::int64_t wrappingSum(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) +
                                   static_cast<std::uint64_t>(right));
}

// One entry as read() returns it. It stays valid until the next read(); a
// folder's entry stays valid until the end of its second visit: both visits and
// every item beneath see the same object.
struct FTSEntry {
  // From the opened path down to the item. NUL-terminated in the entry that
  // read() returned last.
  std::string_view path;
  // The last component; for the root, its path after the last slash.
  std::string_view name;
  FTSInfo info = FTSInfo::D;
  int errnum = 0; // with DNR, ERR and NS
  int level = 0;  // 0 for the root, -1 for the root's parent
  // For the caller's own use; 0 at the first visit. Only a sieve's numbers are
  // added to it, in any order, until the second visit; sums wrap.
  std::int64_t number = 0;
  // The folder above; for the root a mere placeholder. Never null in an entry
  // that read() returned.
  FTSEntry *parent = nullptr;
  // All zero with NS and NSOK. Read once, before the first visit.
  FTSStat statp;
};

// Looks at items on behalf of a walk's caller, so that the walk need not return
// those that the caller has no further use for.
class FTSSieve {
public:
  virtual ~FTSSieve() = default;
  // Tells whether the walk returns the item. The item is not a folder; its status
  // is void with NSOK. The walk adds the number of an item that it does not
  // return to that of the parent. Any thread may call it, several at once and in
  // any order.
  virtual bool returns(const char *name, FTSInfo info, const FTSStat &status,
                       std::int64_t &number) const noexcept = 0;
};

class FTSStream {
public:
  // Closes a stream that is still open.
  virtual ~FTSStream() = default;

  // Returns the next entry, which the stream owns; null at the end, after
  // close(), or when the walk was given up. Counts each item at its first visit
  // into the current progress, with its allocated bytes if known; an item that
  // a sieve holds back as well. Entries of one folder come in the order in which
  // the volume lists them.
  virtual FTSEntry *read() = 0;
  // The reason why the walk was given up before its end, 0 if it was not:
  // ECANCELED when the current request was cancelled; EMFILE, ENFILE or ENOMEM
  // when descriptors or memory ran out and did not come back within some
  // seconds. The entries read so far are then not the whole.
  virtual int failure() const { return 0; }
  // With SKIP for the folder that read() has just returned as D, the walk passes
  // over its contents, and returns it for the second time next.
  virtual void set(FTSEntry &entry, FTSInstruction instruction) = 0;
  // Releases every descriptor. A second call does nothing. May raise
  // NS::Exception.
  virtual void close() = 0;
};

class FTS : public SharedInstance<FTS> {
public:
  virtual ~FTS() = default;
  static FTS &real();

  // Opens a stream over one root, without a comparison function. A root that
  // does not exist is not a failure: it reads as NS. Null with errno set for an
  // empty path, a path with a NUL inside and for unsupported options.
  virtual std::unique_ptr<FTSStream> open(const std::string &path, int options) = 0;
  // The same for a caller that will skip no folder: other threads may read
  // folders ahead of the stream. Entries and their order are those of open;
  // each shows its item at some time since the opening. A sieve may hold back
  // items below the root; it must outlive the stream, and is null for a caller
  // that wants all. The stream may return an item without asking the sieve, such
  // as one that has just taken a folder's place.
  virtual std::unique_ptr<FTSStream> openForAll(const std::string &path, int options,
                                                const FTSSieve *sieve) {
    static_cast<void>(sieve);
    return open(path, options);
  }
  std::unique_ptr<FTSStream> openForAll(const std::string &path, int options) {
    return openForAll(path, options, nullptr);
  }
};

} // namespace NS
