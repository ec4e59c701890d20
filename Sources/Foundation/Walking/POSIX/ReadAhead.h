// Reads folders ahead of a walk, by threads that help it. Internal to
// Foundation.
//
// The walk keeps its sequence to itself: it asks for one batch of a folder's
// items after the other, in the order in which it visits them. Every folder
// found in a batch waits in a list that has the same order (AheadList). Each
// free thread, a helper or the walk's own, reads the first waiting batch
// (AheadReader), while not too much is ahead (AheadBudget). So the threads
// always read the batches that the walk needs next, and the results of the walk
// do not depend on the threads. Totals and log lines come from the walk's one
// thread, so they are those of a walk alone.
//
// Crew decides the number of helpers. They do not make the walk wait: it reads
// a batch itself that no thread has begun, and while another thread reads the
// batch that it needs, it reads the next one. A thread that must wait for
// another spins for a few microseconds first, since small folders take no
// longer than sleeping and waking. It does not spin when more threads are at
// work than there are processors: it would take the processor from the other
// thread.
//
// One lock guards the list, the budget, the spares and the fields of a batch
// that say so. No thread holds it during a system call, except in drop, which
// is rare.
//
// When memory or descriptors run out, reading ahead ends for good: the walk
// uses the ready batches and goes on by itself.
//
// Only the one thread of the walk calls the public functions.
#pragma once

#include "Foundation/Threads/Internal/Crew.h"
#include "Foundation/Walking/Internal/AheadBatch.h"
#include "Foundation/Walking/Internal/AheadBudget.h"
#include "Foundation/Walking/Internal/AheadList.h"
#include "Foundation/Walking/Internal/AheadSpares.h"
#include "Foundation/Walking/POSIX/AheadReader.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace NS {

class ReadAhead {
public:
  ReadAhead(const ItemLook &look, unsigned processors);
  // Waits for batches that are being read; the walk must have dropped its
  // batches.
  ~ReadAhead();
  ReadAhead(const ReadAhead &) = delete;
  ReadAhead &operator=(const ReadAhead &) = delete;

  // The first batch of the root, whose descriptor stays the caller's and must
  // outlive this object.
  AheadBatch *begin(int root);

  // Returns true when the batch is ready: reads it, or others while another
  // thread reads it. False when reading ahead has ended by a lack of memory or
  // descriptors: the caller drops the batch and reads the folder itself.
  bool await(AheadBatch &batch);
  // Returns the batch after this one of the same folder, null at its end.
  // Destroys this one.
  AheadBatch *next(AheadBatch &batch);
  // Drops a batch in any state, with all batches after it and beneath it.
  void drop(AheadBatch &batch);
  // Ends the reading ahead and closes every folder. Ready batches stay.
  void retreat();

private:
  using Lock = std::unique_lock<std::mutex>;
  // Descriptors to be closed when no thread has to wait for that; -1 for none.
  using Closable = std::array<int, 2>;

  Lock lockSoon();
  void lockSoon(Lock &lock);
  template <typename Condition> bool comesSoon(Lock &lock, Condition holds);
  void publish(AheadBatch &batch, std::unique_ptr<AheadBatch> rest);
  void help(HelperPlace &place);

  // The caller holds the lock.
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

  std::mutex mutex_;                 // guards the members below, except the crew
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
