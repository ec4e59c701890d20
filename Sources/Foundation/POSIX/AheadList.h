// The batches that wait to be read or are being read, in the order in which the
// walk will want them. For bodies of the seam only.
//
// The walk visits a folder's items in the order of its listing and goes down
// into each folder as it meets it. When a batch has been read, the folders that
// were found in it are the next that the walk wants, before whatever came behind
// the batch; so they take the batch's own place in the list. The rest of a
// large folder stands behind its batch, and so behind the folders found in it.
// By these two rules the list always has the walk's order, and the first batch
// that waits is the one to read next, whoever reads it.
//
// A batch stands in the list as long as it waits or is being read, as its place
// is needed for what is found in it. Those being read stand near the head, no
// more of them than there are threads, and so the search for the first that
// waits is short.
//
// The batches belong to ReadAhead, which guards the list with its lock. Only
// the number of those that wait may be read without it.
#pragma once

#include "Foundation/POSIX/AheadBatch.h"

#include <atomic>
#include <cstddef>

namespace NS {

class AheadList {
public:
  // Of batches that nobody reads yet.
  std::size_t waiting() const { return waiting_.load(std::memory_order_relaxed); }
  AheadBatch *head() const { return head_; }
  // Null when none waits.
  AheadBatch *firstWaiting() const;

  // Puts a waiting batch behind the place, or at the head.
  void insertAfter(AheadBatch *place, AheadBatch &batch);
  // A waiting batch is read from now on; one being read waits again.
  void take(AheadBatch &batch);
  void putBack(AheadBatch &batch);
  // The folders found in a batch that was read take its place.
  void replaceByFolders(AheadBatch &batch);
  // A waiting batch leaves.
  void remove(AheadBatch &batch);

private:
  void unlink(AheadBatch &batch);

  AheadBatch *head_ = nullptr;
  std::atomic<std::size_t> waiting_{0};
};

} // namespace NS
