// The list of what waits, and who reads it.
#include "Foundation/Linux/ReadAhead.h"

#include "Foundation/Exhaustion.h"
#include "Foundation/Linux/DirectoryRecords.h"
#include "Foundation/Progress.h"

#include <dirent.h>
#include <exception>
#include <new>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

using State = AheadBatch::State;

constexpr std::size_t batchSize = 64 * 1024;
// Room enough for any record, so that a full buffer is known from the end.
constexpr std::size_t recordRoom = 4 * 1024;
// What is read and not used yet: a few milliseconds of work.
constexpr std::size_t unusedBudget = 4 * 1024 * 1024;
constexpr std::size_t openFolderBudget = 64;
// Content that is kept to be used again.
constexpr std::size_t mostSpare = 64;
constexpr std::size_t largestSpare = 16 * 1024;
// So many folders waiting repay the start of a thread.
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

// The looked-at records of a batch, one after the other.
template <typename Visit>
void eachLookedAt(const ReadAhead &ahead, AheadBatch &batch, Visit visit) {
  const std::vector<char> &records = batch.content->records;
  for (std::size_t at = 0; at < records.size();) {
    const DirectoryRecord &record = directoryRecordAt(records.data() + at);
    at += record.length;
    if (!isDotOrDotDot(record.name) && ahead.isLookedAt(record.type))
      visit(record);
  }
}

// The lock is held for less time than a thread takes to sleep and be woken.
void lockSoon(std::unique_lock<std::mutex> &lock) {
  constexpr int tries = 200;
  for (int attempt = 0; attempt < tries; ++attempt) {
    if (lock.try_lock())
      return;
    pauseProcessor();
  }
  lock.lock();
}

std::unique_lock<std::mutex> lockedSoon(std::mutex &mutex) {
  std::unique_lock lock(mutex, std::defer_lock);
  lockSoon(lock);
  return lock;
}

// Whether something comes about while this thread looks on, without the lock:
// reading a small folder takes less time than to sleep and be woken.
template <typename Condition> bool comesSoon(std::unique_lock<std::mutex> &lock, Condition holds) {
  constexpr int looks = 400;
  lock.unlock();
  bool came = false;
  for (int look = 0; look < looks && !came; ++look) {
    pauseProcessor();
    came = holds();
  }
  lockSoon(lock);
  return came;
}

} // namespace

// So that giving content back, which destructors do, takes no memory.
ReadAhead::ReadAhead(Look look, unsigned processors) : look_(look), helpers_(processors) {
  spare_.reserve(mostSpare);
}

ReadAhead::~ReadAhead() {
  retreat();
}

AheadBatch *ReadAhead::begin(int root, const FTSStat &status) {
  root_ = std::make_unique<AheadBatch>();
  root_->descriptor = root;
  root_->status = status;
  Lock lock = lockedSoon(mutex_);
  insertAfter(nullptr, *root_);
  return root_.get();
}

bool ReadAhead::await(AheadBatch &batch) {
  if (batch.state.load(std::memory_order_acquire) == State::Ready)
    return true;
  Lock lock = lockedSoon(mutex_);
  while (batch.state != State::Ready) {
    if (batch.state == State::Waiting && failed_) {
      lock.unlock();
      retreat();
      return false;
    }
    AheadBatch *taken = batch.state == State::Waiting ? &batch : takeOther();
    if (taken) {
      readTaken(*taken, lock, ownBuffer_);
      startHelpers();
    } else if (!comesSoon(lock, [&] { return batch.state == State::Ready; })) {
      walkWaits_ = true;
      settled_.wait(lock, [&] { return batch.state != State::Reading; });
      walkWaits_ = false;
    }
  }
  return true;
}

AheadBatch *ReadAhead::next(AheadBatch &batch) {
  AheadBatch *rest = batch.rest;
  {
    Lock lock = lockedSoon(mutex_);
    discard(batch);
    wakeHelpers();
  }
  if (batch.first != &batch)
    delete &batch;
  return rest;
}

void ReadAhead::drop(AheadBatch &batch) {
  Lock lock = lockedSoon(mutex_);
  dropTree(batch, lock);
  wakeHelpers();
}

// Recursion ends with the levels that are read ahead.
void ReadAhead::dropTree(AheadBatch &batch, Lock &lock) {
  for (AheadBatch *at = &batch; at;) {
    walkWaits_ = true;
    settled_.wait(lock, [&] { return at->state != State::Reading; });
    walkWaits_ = false;
    if (at->state == State::Waiting) {
      unlink(*at);
      --waiting_;
      closeNow(descriptorUnused(at->first == at ? at->above : at->first));
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
    Lock lock = lockedSoon(mutex_);
    failed_ = true;
  }
  workLeft_.notify_all();
  for (Helper &helper : crew_)
    if (helper.thread.joinable())
      helper.thread.join();
  // Every folder that is open has a batch that waits for it.
  for (AheadBatch *at = head_; at; at = at->after) {
    AheadBatch *folder = at->first == at ? at->above : at->first;
    if (folder && folder->above && folder->descriptor >= 0)
      closeNow(std::exchange(folder->descriptor, -1));
  }
}

void ReadAhead::help(std::size_t place) {
  std::unique_ptr<char[]> buffer;
  Lock lock = lockedSoon(mutex_);
  while (!failed_ && helpers_.mayStay()) {
    if (AheadBatch *batch = takeOther()) {
      readTaken(*batch, lock, buffer);
    } else if (!comesSoon(lock, [&] { return waiting_ > 1; })) {
      ++idle_;
      workLeft_.wait(lock, [&] { return failed_ || takeOther() != nullptr; });
      --idle_;
    }
  }
  helpers_.leave();
  crew_[place].running = false;
}

// Starts what help there may be, or again what gave way to another walk.
void ReadAhead::startHelpers() {
  if (waiting_ < waitingForHelp || failed_)
    return;
  helpers_.wantHelp();
  for (std::size_t place = 0; place < crew_.size(); ++place) {
    Helper &helper = crew_[place];
    if (helper.running)
      continue;
    if (!helpers_.mayJoin())
      return;
    if (helper.thread.joinable())
      helper.thread.join();
    try {
      helper.thread = std::thread([this, place, &progress = Progress::current()] {
        Progress::Scope scope(progress);
        help(place);
      });
      helper.running = true;
    } catch (const std::exception &) { // no thread, or no memory for one
      helpers_.leave();
      return;
    }
  }
}

// What the walk needs soonest, while there is room for more.
AheadBatch *ReadAhead::takeOther() const {
  if (failed_ || waiting_ == 0 || unusedBytes_ >= unusedBudget || openFolders_ >= openFolderBudget)
    return nullptr;
  AheadBatch *batch = head_;
  while (batch && batch->state != State::Waiting)
    batch = batch->after;
  return batch;
}

// The walk takes the first that waits by itself.
void ReadAhead::wakeHelpers() {
  if (idle_ > 0 && waiting_ > 1 && unusedBytes_ < unusedBudget / 2)
    workLeft_.notify_one();
}

// Reads without the lock.
void ReadAhead::readTaken(AheadBatch &batch, Lock &lock, std::unique_ptr<char[]> &buffer) {
  batch.state = State::Reading;
  --waiting_;
  if (!spare_.empty()) {
    batch.content = std::move(spare_.back());
    spare_.pop_back();
  }
  lock.unlock();
  bool done = false;
  try {
    if (!batch.content)
      batch.content = std::make_unique<AheadContent>();
    if (!buffer)
      buffer.reset(new char[batchSize]);
    done = read(batch, buffer.get());
  } catch (const std::bad_alloc &) {
    done = false;
  }
  lockSoon(lock);
  Closable unused{-1, -1};
  if (done)
    unused = settle(batch);
  else
    putBack(batch);
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

// False when memory or descriptors have run out: nothing is changed then.
bool ReadAhead::read(AheadBatch &batch, char *buffer) {
  bool opens = batch.first == &batch && batch.above;
  if (opens && !openFolder(batch))
    return false;
  if (batch.openError != 0)
    return true;
  list(batch, buffer);
  if (isExhaustion(batch.readError))
    return false;
  lookAtItems(batch);
  // Most folders hold no others and are done with here.
  if (opens && batch.folderCount == 0 && !batch.rest)
    closeNow(std::exchange(batch.descriptor, -1));
  return true;
}

bool ReadAhead::openFolder(AheadBatch &batch) {
  int above = batch.above->descriptor;
  int descriptor = ::openat(above, batch.name, folderFlags);
  if (descriptor < 0) {
    batch.openError = errno;
    batch.statusError = readStatus(above, batch.name, batch.status);
    return !isExhaustion(batch.openError);
  }
  batch.statusError = readStatus(descriptor, batch.status);
  batch.descriptor = descriptor;
  return true;
}

void ReadAhead::list(AheadBatch &batch, char *buffer) {
  std::size_t filled = 0;
  bool atEnd = false;
  while (!atEnd && batchSize - filled >= recordRoom) {
    long count =
        ::syscall(SYS_getdents64, batch.first->descriptor, buffer + filled, batchSize - filled);
    // A folder that was removed meanwhile has nothing more to list.
    if (count < 0 && errno != ENOENT)
      batch.readError = errno;
    std::size_t size = count > 0 ? static_cast<std::size_t>(count) : 0;
    atEnd = size == 0 || isLastBatch(buffer + filled, size);
    filled += size;
  }
  std::unique_ptr<AheadBatch> rest;
  if (!atEnd)
    rest = std::make_unique<AheadBatch>();
  batch.content->records.assign(buffer, buffer + filled);
  makeRoom(batch);
  if (rest)
    publishRest(batch, std::move(rest));
}

// Whatever looking at the items will need, so that it cannot fail.
void ReadAhead::makeRoom(AheadBatch &batch) {
  std::size_t items = 0;
  std::size_t folders = 0;
  eachLookedAt(*this, batch, [&](const DirectoryRecord &record) {
    ++items;
    folders += mayBeFolder(record.type) ? 1u : 0u;
  });
  batch.content->items.reserve(items);
  if (folders > 0 && batch.level < levels)
    batch.folders = std::make_unique<AheadBatch[]>(folders);
}

// Somebody else may go on in the folder while this batch is looked at.
void ReadAhead::publishRest(AheadBatch &batch, std::unique_ptr<AheadBatch> rest) {
  rest->first = batch.first;
  rest->level = batch.level;
  Lock lock = lockedSoon(mutex_);
  ++batch.first->uses;
  batch.rest = rest.release();
  insertAfter(&batch, *batch.rest);
  wakeHelpers();
}

void ReadAhead::lookAtItems(AheadBatch &batch) {
  int descriptor = batch.first->descriptor;
  bool goesDeeper = batch.level < levels;
  eachLookedAt(*this, batch, [&](const DirectoryRecord &record) {
    AheadItem &item = batch.content->items.emplace_back();
    bool isFolder = record.type == DT_DIR;
    if (!isFolder || !goesDeeper) {
      item.errnum = readStatus(descriptor, record.name, item.status);
      isFolder = S_ISDIR(item.status.mode);
    }
    if (isFolder && goesDeeper && mayBeFolder(record.type))
      item.folder = &addFolder(batch, record.name);
  });
}

AheadBatch &ReadAhead::addFolder(AheadBatch &batch, const char *name) {
  AheadBatch &folder = batch.folders[batch.folderCount++];
  folder.above = batch.first;
  folder.name = name;
  folder.level = batch.level + 1;
  return folder;
}

ReadAhead::Closable ReadAhead::settle(AheadBatch &batch) {
  AheadBatch *place = &batch;
  for (std::size_t index = 0; index < batch.folderCount; ++index) {
    insertAfter(place, batch.folders[index]);
    place = &batch.folders[index];
  }
  unlink(batch);
  AheadBatch &folder = *batch.first;
  folder.uses += batch.folderCount;
  if (&folder == &batch && batch.descriptor >= 0 && batch.above)
    ++openFolders_;
  Closable unused{descriptorUnused(&folder == &batch ? batch.above : nullptr),
                  descriptorUnused(&folder)};
  unusedBytes_ += bytesOf(batch);
  batch.state.store(State::Ready, std::memory_order_release);
  return unused;
}

// As it was before it was taken; the walk will read the folder by itself.
void ReadAhead::putBack(AheadBatch &batch) {
  if (batch.first == &batch && batch.above && batch.descriptor >= 0)
    closeNow(std::exchange(batch.descriptor, -1));
  batch.openError = batch.readError = 0;
  batch.content.reset();
  batch.folders.reset();
  batch.state = State::Waiting;
  ++waiting_;
  failed_ = true;
  workLeft_.notify_all();
}

// Behind the place, or at the head of the list.
void ReadAhead::insertAfter(AheadBatch *place, AheadBatch &batch) {
  batch.before = place;
  batch.after = place ? place->after : head_;
  (place ? place->after : head_) = &batch;
  if (batch.after)
    batch.after->before = &batch;
  ++waiting_;
}

void ReadAhead::unlink(AheadBatch &batch) {
  (batch.before ? batch.before->after : head_) = batch.after;
  if (batch.after)
    batch.after->before = batch.before;
}

// One batch less needs the folder. The descriptor to be closed then, or -1.
int ReadAhead::descriptorUnused(AheadBatch *folder) {
  if (!folder || --folder->uses > 0 || !folder->above || folder->descriptor < 0)
    return -1;
  --openFolders_;
  return std::exchange(folder->descriptor, -1);
}

void ReadAhead::discard(AheadBatch &batch) {
  if (batch.state == State::Ready)
    unusedBytes_ -= bytesOf(batch);
  batch.state = State::Dropped;
  batch.folders.reset();
  batch.folderCount = 0;
  if (batch.content && spare_.size() < mostSpare && bytesOf(batch) <= largestSpare) {
    batch.content->records.clear();
    batch.content->items.clear();
    spare_.push_back(std::move(batch.content));
  }
  batch.content.reset();
}

std::size_t ReadAhead::bytesOf(const AheadBatch &batch) {
  std::size_t bytes = sizeof batch + batch.folderCount * sizeof(AheadBatch);
  if (batch.content)
    bytes +=
        batch.content->records.capacity() + batch.content->items.capacity() * sizeof(AheadItem);
  return bytes;
}

} // namespace NS
