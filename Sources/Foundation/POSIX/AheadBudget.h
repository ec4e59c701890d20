// How far the reading may be ahead of the walk. For bodies of the seam only.
//
// Two things are bounded. Bytes: what was read and not used yet, a few
// milliseconds of work, so that memory stays the same however large the tree
// is. Folders: those that are open, because something in them is still to be
// read. A batch that is being read is counted only when it is ready, and so both
// may be exceeded by one batch and one folder for each thread.
//
// When either bound is reached nobody takes another batch; only the walk still
// reads the one that it needs, for it cannot go on without. As the walk uses
// batches the bytes become fewer. Threads that went to sleep are woken when half
// of the bytes are free again, so that they have some work to do when they are
// awake.
//
// Guarded by the lock of ReadAhead.
#pragma once

#include <cstddef>

namespace NS {

class AheadBudget {
public:
  static constexpr std::size_t mostBytes = 4 * 1024 * 1024;
  static constexpr std::size_t mostFolders = 64;

  bool hasRoom() const { return bytes_ < mostBytes && folders_ < mostFolders; }
  bool isHalfFree() const { return bytes_ < mostBytes / 2; }

  void addBytes(std::size_t bytes) { bytes_ += bytes; }
  void removeBytes(std::size_t bytes) { bytes_ -= bytes; }
  void addFolder() { ++folders_; }
  void removeFolder() { --folders_; }

private:
  std::size_t bytes_ = 0;
  std::size_t folders_ = 0;
};

} // namespace NS
