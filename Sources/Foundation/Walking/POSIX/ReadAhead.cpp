// Divides the reading between the threads.
#include "Foundation/Walking/POSIX/ReadAhead.h"

#include <new>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

using State = AheadBatch::State;

// The number of waiting folders from which on it pays to start a thread.
constexpr std::size_t waitingForHelp = 4;

void pauseProcessor() {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

void closeNow(int descriptor) {
  if (descriptor >= 0)
    static_cast<void>(::close(descriptor));
}

} // namespace

ReadAhead::ReadAhead(const ItemLook &look, unsigned processors)
    : reader_(look, [this](AheadBatch &batch,
                           std::unique_ptr<AheadBatch> rest) { publish(batch, std::move(rest)); }),
      crew_(processors, [this](HelperPlace &place) { help(place); }) {}

ReadAhead::~ReadAhead() {
  retreat();
}

AheadBatch *ReadAhead::begin(int root) {
  root_ = std::make_unique<AheadBatch>();
  root_->descriptor = root;
  Lock lock = lockSoon();
  list_.insertAfter(nullptr, *root_);
  return root_.get();
}

bool ReadAhead::await(AheadBatch &batch) {
  if (batch.state.load(std::memory_order_acquire) == State::Ready)
    return true;
  Lock lock = lockSoon();
  while (batch.state != State::Ready) {
    bool isWaiting = batch.state == State::Waiting;
    if (isWaiting && failed_) {
      lock.unlock();
      retreat();
      return false;
    }
    if (AheadBatch *taken = isWaiting ? &batch : firstToRead()) {
      readTaken(*taken, lock, ownBuffer_, crew_.own());
      callHelpers();
    } else if (!comesSoon(lock, [&] { return batch.state == State::Ready; })) {
      awaitSettled(lock, batch);
    }
  }
  return true;
}

AheadBatch *ReadAhead::next(AheadBatch &batch) {
  AheadBatch *rest = batch.rest;
  {
    Lock lock = lockSoon();
    discard(batch);
    wakeHelpers();
  }
  if (batch.first != &batch)
    delete &batch;
  return rest;
}

void ReadAhead::drop(AheadBatch &batch) {
  Lock lock = lockSoon();
  dropTree(batch, lock);
  wakeHelpers();
}

// The levels that are read ahead bound the recursion.
void ReadAhead::dropTree(AheadBatch &batch, Lock &lock) {
  for (AheadBatch *at = &batch; at;) {
    awaitSettled(lock, *at);
    if (at->state == State::Waiting) {
      list_.remove(*at);
      closeNow(descriptorUnused(at->source()));
    }
    for (std::size_t index = 0; index < at->folderCount; ++index)
      if (at->folders[index].state != State::Dropped)
        dropTree(at->folders[index], lock);
    AheadBatch *rest = at->rest;
    discard(*at);
    if (at->first != at)
      delete at;
    at = rest;
  }
}

void ReadAhead::retreat() {
  {
    Lock lock = lockSoon();
    failed_ = true;
  }
  workLeft_.notify_all();
  crew_.join();
  // For every open folder there is a batch that waits for it.
  for (AheadBatch *at = list_.head(); at; at = at->after) {
    AheadBatch *folder = at->source();
    if (folder && folder->above)
      closeNow(std::exchange(folder->descriptor, -1));
  }
}

// Spins only for work, not for the budget: the walk may take its time.
void ReadAhead::help(HelperPlace &place) {
  std::unique_ptr<char[]> buffer;
  Lock lock = lockSoon();
  while (!failed_ && place && place.mayStay()) {
    if (AheadBatch *batch = firstToRead())
      readTaken(*batch, lock, buffer, place);
    else if (!budget_.hasRoom() || !comesSoon(lock, [&] { return list_.waiting() > 1; }))
      awaitWork(lock, place);
  }
}

// Gives the place back during the wait. Afterwards the helper may get none.
void ReadAhead::awaitWork(Lock &lock, HelperPlace &place) {
  place.rest();
  ++idle_;
  workLeft_.wait(lock, [&] { return failed_ || firstToRead() != nullptr; });
  --idle_;
  place = crew_.takePlace();
}

void ReadAhead::awaitSettled(Lock &lock, const AheadBatch &batch) {
  walkWaits_ = true;
  settled_.wait(lock, [&] { return batch.state != State::Reading; });
  walkWaits_ = false;
}

// The walk has read a batch itself, so the helpers are behind. Wakes one that waits
// before it starts another, even if less than half of the budget is free: the folders
// above the walk's place may take the other half until it comes back to them.
void ReadAhead::callHelpers() {
  if (list_.waiting() < waitingForHelp || failed_)
    return;
  if (idle_ == 0)
    static_cast<void>(crew_.call());
  else if (budget_.hasRoom())
    workLeft_.notify_one();
}

// The batch that the walk needs soonest, while the budget permits more.
AheadBatch *ReadAhead::firstToRead() const {
  return failed_ || !budget_.hasRoom() ? nullptr : list_.firstWaiting();
}

// Wakes a helper for the second waiting batch; the walk takes the first one.
void ReadAhead::wakeHelpers() {
  if (idle_ > 0 && list_.waiting() > 1 && budget_.isHalfFree())
    workLeft_.notify_one();
}

// Reads without holding the lock.
void ReadAhead::readTaken(AheadBatch &batch, Lock &lock, std::unique_ptr<char[]> &buffer,
                          HelperPlace &place) {
  list_.take(batch);
  batch.content = spares_.take();
  lock.unlock();
  if (!buffer)
    buffer.reset(new (std::nothrow) char[AheadReader::bufferSize]);
  place.begin();
  bool isRead = buffer && reader_.read(batch, buffer.get());
  place.end();
  lockSoon(lock);
  Closable unused{-1, -1};
  if (isRead)
    unused = settle(batch);
  else
    giveUp(batch);
  if (walkWaits_)
    settled_.notify_one();
  wakeHelpers();
  if (unused == Closable{-1, -1})
    return;
  lock.unlock();
  for (int descriptor : unused)
    closeNow(descriptor);
  lockSoon(lock);
}

// Lets another thread list on in the folder, while this one looks at the items of
// this batch.
void ReadAhead::publish(AheadBatch &batch, std::unique_ptr<AheadBatch> rest) {
  Lock lock = lockSoon();
  ++batch.first->uses;
  batch.rest = rest.release();
  list_.insertAfter(&batch, *batch.rest);
  wakeHelpers();
}

ReadAhead::Closable ReadAhead::settle(AheadBatch &batch) {
  list_.replaceByFolders(batch);
  AheadBatch &folder = *batch.first;
  folder.uses += batch.folderCount;
  if (&folder == &batch && batch.descriptor >= 0 && batch.above)
    budget_.addFolder();
  Closable unused{descriptorUnused(&folder == &batch ? batch.above : nullptr),
                  descriptorUnused(&folder)};
  budget_.addBytes(batch.bytes());
  batch.state.store(State::Ready, std::memory_order_release);
  return unused;
}

// Puts the batch back unread and ends the reading ahead; the walk will read the
// folder by itself.
void ReadAhead::giveUp(AheadBatch &batch) {
  AheadReader::forget(batch);
  list_.putBack(batch);
  failed_ = true;
  workLeft_.notify_all();
}

// One batch less needs the folder. Returns the descriptor to be closed then, or
// -1.
int ReadAhead::descriptorUnused(AheadBatch *folder) {
  if (!folder || --folder->uses > 0 || !folder->above || folder->descriptor < 0)
    return -1;
  budget_.removeFolder();
  return std::exchange(folder->descriptor, -1);
}

void ReadAhead::discard(AheadBatch &batch) {
  if (batch.state == State::Ready)
    budget_.removeBytes(batch.bytes());
  batch.state = State::Dropped;
  batch.folders.reset();
  batch.folderCount = 0;
  spares_.give(std::move(batch.content));
}

// Takes the lock. Spins first, since a thread holds it for less time than sleeping
// and waking take.
void ReadAhead::lockSoon(Lock &lock) {
  constexpr int tries = 200;
  for (int attempt = 0; attempt < tries && !crew_.isCrowded(); ++attempt) {
    if (lock.try_lock())
      return;
    pauseProcessor();
  }
  lock.lock();
}

ReadAhead::Lock ReadAhead::lockSoon() {
  Lock lock(mutex_, std::defer_lock);
  lockSoon(lock);
  return lock;
}

// Tells whether the condition becomes true while this thread spins, without the
// lock.
template <typename Condition> bool ReadAhead::comesSoon(Lock &lock, Condition holds) {
  constexpr int looks = 400;
  if (crew_.isCrowded())
    return false;
  lock.unlock();
  bool came = false;
  for (int look = 0; look < looks && !came; ++look) {
    pauseProcessor();
    came = holds();
  }
  lockSoon(lock);
  return came;
}

} // namespace NS
