// A record of the items that were copied, each in its state at that time. A move
// then removes only these items. Internal to Foundation.
//
// It keeps eight bytes for each item: a fingerprint of its identity, size and
// times, which no other process can predict. Fingerprints beyond a bounded
// number go to a file without a name beside the copy, of which memory keeps
// eight bytes for 512 items.
//
// One thread records; afterwards any number of threads may ask.
#pragma once

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NS {

struct ItemStatus;

class CopiedItems {
public:
  // Fingerprints in memory, of eight bytes each.
  static constexpr std::size_t mostInMemory = 512 * 1024;

  explicit CopiedItems(std::size_t bound = mostInMemory);

  // The name by which the file is made, and which is removed at once.
  static constexpr const char *fileName = "record";
  // Names a folder for the file of the fingerprints beyond the bound. The
  // descriptor must stay open during the recording.
  void spillInto(int folder) { folder_ = folder; }
  // Records an item in its state before it was read. Returns 0, or an errno value
  // when the file cannot take it.
  int add(const ItemStatus &status);
  // Ends the recording.
  void finish();

  // The item that the move compares.
  enum class Likeness {
    Unchanged, // device, inode, size and time of change
    // For files with several names, whose time of change moves on when one of
    // the names goes: device, inode, size and time of modification.
    SameContent,
  };
  // Tells whether such an item was copied. Only device and inode tell folders
  // apart. An item whose fingerprint cannot be read again counts as not copied.
  bool contains(const ItemStatus &status, Likeness likeness) const;

private:
  using Fingerprint = std::uint64_t;
  // A sorted part of the file; the first fingerprint of each of its blocks.
  struct Run {
    std::uint64_t start = 0; // in the file, in fingerprints
    std::size_t count = 0;
    std::vector<Fingerprint> firsts;
  };

  Fingerprint fingerprintOf(const ItemStatus &status, Likeness likeness) const;
  int addFingerprint(Fingerprint fingerprint);
  int spill();
  bool runContains(const Run &run, Fingerprint fingerprint) const;

  const std::size_t bound_;
  const std::uint64_t key_;
  int folder_ = -1;
  std::vector<Fingerprint> recent_; // sorted when the recording is over
  Descriptor file_;
  std::uint64_t inFile_ = 0; // fingerprints
  std::vector<Run> runs_;
};

} // namespace NS
