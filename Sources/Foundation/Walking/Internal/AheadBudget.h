// Bounds how far the reading may be ahead of the walk. Internal to Foundation.
//
// It bounds two numbers: the bytes of the batches that were read and not used yet
// (a few milliseconds of work, in any tree), and the folders that are open because
// a part of them is not read yet. A batch counts only when it is ready, so each
// thread may exceed the bounds by one batch and one folder.
//
// At either bound no helper takes another batch; only the walk still reads the
// one that it needs, since it cannot go on without. As the walk uses batches
// the bytes become fewer. Sleeping threads are woken when half of the bytes are
// free again, so that they then have some work to do, or when the walk has to read
// a batch itself.
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
  bool isHalfFree() const { return bytes_ < mostBytes / 2 && folders_ < mostFolders; }

  void addBytes(std::size_t bytes) { bytes_ += bytes; }
  void removeBytes(std::size_t bytes) { bytes_ -= bytes; }
  void addFolder() { ++folders_; }
  void removeFolder() { --folders_; }

private:
  std::size_t bytes_ = 0;
  std::size_t folders_ = 0;
};

} // namespace NS
