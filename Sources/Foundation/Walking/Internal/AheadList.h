// The batches that wait to be read or are being read, in the walk's order.
// Internal to Foundation.
//
// The walk visits a folder's items in the order of its listing and goes down
// into each folder as it meets it. When a batch has been read, the folders
// found in it are the next ones for the walk, before all batches after it, so
// they take the batch's own place in the list. The rest of a large folder comes
// after its batch, and so after the folders found in it. By these two rules the
// list always has the walk's order, and any thread reads the first batch that
// waits.
//
// A batch is in the list while it waits or is being read, since the folders
// found in it need its place. Those being read are near the head, at most one
// for each thread, so the search for the first that waits is short.
//
// The batches belong to ReadAhead, which guards the list with its lock. Only
// the number of waiting batches may be read without it.
#pragma once

#include "Foundation/Walking/Internal/AheadBatch.h"

#include <atomic>
#include <cstddef>

namespace NS {

class AheadList {
public:
  // The number of batches that no thread reads yet.
  std::size_t waiting() const { return waiting_.load(std::memory_order_relaxed); }
  AheadBatch *head() const { return head_; }
  // Null when none waits.
  AheadBatch *firstWaiting() const;

  // Puts a waiting batch after the place, or at the head.
  void insertAfter(AheadBatch *place, AheadBatch &batch);
  // Marks a waiting batch as being read, or one being read as waiting again.
  void take(AheadBatch &batch);
  void putBack(AheadBatch &batch);
  // The folders found in a batch that was read take its place.
  void replaceByFolders(AheadBatch &batch);
  // Removes a waiting batch.
  void remove(AheadBatch &batch);

private:
  void unlink(AheadBatch &batch);

  AheadBatch *head_ = nullptr;
  std::atomic<std::size_t> waiting_{0};
};

} // namespace NS
