// Folders read ahead of a walk, by threads that help it. For bodies of the
// seam only.
//
// The walk keeps its sequence to itself: it asks for one batch of a folder's
// items after the other, in the order in which it visits them. Every folder
// found in a batch waits in a list that has the same order (AheadList), and
// each thread that is free, a helper or the walk's own, reads the first that
// waits (AheadReader), as long as not too much is ahead (AheadBudget). So what
// is read is always what the walk needs next, and nothing that the walk returns
// depends on who read it. Totals and log lines come from the walk's one thread,
// which is why they are those of a walk alone.
//
// How many helpers there are, Crew knows. They do not make the walk wait: where
// the walk needs a batch that nobody has begun, it reads it; where one is being
// read, it reads the next meanwhile. A thread that must wait for another looks
// on for a few microseconds first, as small folders take no longer than to
// sleep and be woken, unless there are more threads at work than processors:
// then looking on would take the processor from the one that is waited for.
//
// One lock guards the list, the budget, the spares and the fields of a batch
// that say so. It is held for no system call but in drop, which is rare.
//
// When memory or descriptors run out, reading ahead ends for good: what is
// ready is used, and the walk goes on by itself.
//
// All but the helpers' part belongs to the one thread of the walk.
#pragma once

#include "Foundation/POSIX/AheadBatch.h"
#include "Foundation/POSIX/AheadBudget.h"
#include "Foundation/POSIX/AheadList.h"
#include "Foundation/POSIX/AheadReader.h"
#include "Foundation/POSIX/AheadSpares.h"
#include "Foundation/POSIX/Crew.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace NS {

class ReadAhead {
public:
  using Look = AheadReader::Look;

  ReadAhead(Look look, unsigned processors);
  // Waits for what is being read; the walk must have dropped its batches.
  ~ReadAhead();
  ReadAhead(const ReadAhead &) = delete;
  ReadAhead &operator=(const ReadAhead &) = delete;

  // The first batch of the root, whose descriptor stays the caller's and must
  // outlive this object.
  AheadBatch *begin(int root, const FTSStat &status);
  bool isLookedAt(std::uint8_t type) const { return reader_.isLookedAt(type); }

  // Returns true when the batch is ready: reads it, or others while another
  // thread reads it. False when nothing is read ahead any more for want of
  // memory or descriptors: the caller drops the batch and reads the folder
  // itself.
  bool await(AheadBatch &batch);
  // The batch after this one of the same folder, null at its end. This one is
  // gone.
  AheadBatch *next(AheadBatch &batch);
  // Forgets a batch, whatever its state, and all that follows or lies beneath.
  void drop(AheadBatch &batch);
  // Ends the reading ahead and closes every folder. What is ready stays.
  void retreat();

private:
  using Lock = std::unique_lock<std::mutex>;
  // Descriptors to be closed when nobody has to wait for it; -1 for none.
  using Closable = std::array<int, 2>;

  Lock lockSoon();
  void lockSoon(Lock &lock);
  template <typename Condition> bool comesSoon(Lock &lock, Condition holds);
  void publish(AheadBatch &batch, std::unique_ptr<AheadBatch> rest);
  void help(HelperPlace &place);

  // With the lock.
  void callHelpers();
  void wakeHelpers();
  void awaitWork(Lock &lock, HelperPlace &place);
  void awaitSettled(Lock &lock, const AheadBatch &batch);
  AheadBatch *firstToRead() const;
  void readTaken(AheadBatch &batch, Lock &lock, std::unique_ptr<char[]> &buffer,
                 HelperPlace &place);
  Closable settle(AheadBatch &batch);
  void giveUp(AheadBatch &batch);
  int descriptorUnused(AheadBatch *folder);
  void dropTree(AheadBatch &batch, Lock &lock);
  void discard(AheadBatch &batch);

  const AheadReader reader_;
  std::unique_ptr<AheadBatch> root_;
  std::unique_ptr<char[]> ownBuffer_; // of the walk's thread

  std::mutex mutex_;                 // guards what follows, but for the crew
  std::condition_variable workLeft_; // for helpers
  std::condition_variable settled_;  // for the walk
  AheadList list_;
  AheadBudget budget_;
  AheadSpares spares_;
  std::size_t idle_ = 0; // helpers that wait for work
  bool walkWaits_ = false;
  bool failed_ = false; // nothing more is read ahead
  Crew crew_;           // last, so that its threads end before all else
};

} // namespace NS
