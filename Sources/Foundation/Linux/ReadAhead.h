// Folders read ahead of a walk, by threads that help it. For bodies of the
// seam only.
//
// The walk keeps its sequence to itself: it asks for one batch of a folder's
// items after the other, in the order in which it visits them. Every folder
// found in a batch waits in a list that has the same order, and whoever is
// free, helpers and the walk itself, reads the first that nobody reads yet. So
// what is read is always what the walk needs next, and nothing that the walk
// returns depends on who read it. Totals and log lines come from the walk's
// one thread, which is why they are those of a walk alone.
//
// Bounded: the bytes read and not yet used, the folders that are open (those
// of which something is still to be read), and the levels below the root that
// are read ahead at all; what lies deeper is the walk's own.
//
// All but the helpers' part belongs to the one thread of the walk.
#pragma once

#include "Foundation/Linux/DirectoryRecords.h"
#include "Foundation/Linux/ItemStatus.h"
#include "Foundation/Linux/WalkHelpers.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace NS {

struct AheadBatch;

// An item that was looked at, not just listed. What is a folder by its record
// is looked at as it is opened, which spares a look-up of its name.
struct AheadItem {
  FTSStat status;
  int errnum = 0;               // of the look; the status is void then
  AheadBatch *folder = nullptr; // where what it holds and its status are read ahead
};

// What was read of a folder. Used again for another when the walk is done with
// it, since memory that one thread takes and another gives back is slow.
struct AheadContent {
  std::vector<char> records;    // as the system listed them
  std::vector<AheadItem> items; // of those that ReadAhead::isLookedAt, in their order
};

// Some of the items of one folder, or, as long as it is waiting, the intent to
// read them. A folder's first batch stands for the folder.
struct AheadBatch {
  enum class State : std::uint8_t { Waiting, Reading, Ready, Dropped };

  // For the walk, once ready.
  FTSStat status;                        // of the folder, in its first batch
  int statusError = 0;                   // the status could not be had
  int openError = 0;                     // the folder could not be opened, or is none
  int readError = 0;                     // it could not be read behind these items
  std::unique_ptr<AheadContent> content; // never null
  AheadBatch *rest = nullptr;            // what follows in the folder; null at its end

  // For ReadAhead.
  std::atomic<State> state{State::Waiting};
  AheadBatch *before = nullptr; // in the list of what waits or is being read
  AheadBatch *after = nullptr;
  AheadBatch *above = nullptr;           // the folder that holds this one; null for the root
  AheadBatch *first = this;              // the folder itself
  const char *name = nullptr;            // of the folder; in the records of the one above
  std::unique_ptr<AheadBatch[]> folders; // found among the items
  std::size_t folderCount = 0;
  // Of first batches: the folder, and how many batches still need it open, its
  // own while it is read, those of its folders until they are.
  int level = 0;
  int descriptor = -1;
  std::size_t uses = 1;
};

class ReadAhead {
public:
  // Levels below the root that are read ahead. It bounds the folders open at
  // once, and the way back to one that was closed.
  static constexpr int levels = 32;

  // Whether items are looked at that are known to be no folders.
  enum class Look { AtAll, AtFolders };

  ReadAhead(Look look, unsigned processors);
  // Waits for what is being read; the walk must have dropped its batches.
  ~ReadAhead();
  ReadAhead(const ReadAhead &) = delete;
  ReadAhead &operator=(const ReadAhead &) = delete;

  // The first batch of the root, whose descriptor stays the caller's and must
  // outlive this object.
  AheadBatch *begin(int root, const FTSStat &status);
  bool isLookedAt(std::uint8_t type) const { return look_ == Look::AtAll || mayBeFolder(type); }

  // Returns true when the batch is ready: reads it, or others while somebody
  // reads it. False when nothing is read ahead any more for want of memory or
  // descriptors: the caller drops the batch and reads the folder itself.
  bool await(AheadBatch &batch);
  // The batch after this one of the same folder, null at its end. This one is
  // gone.
  AheadBatch *next(AheadBatch &batch);
  // Forgets a batch, whatever its state, and all that follows or lies beneath.
  void drop(AheadBatch &batch);
  // Ends the reading ahead and closes every folder. What is ready stays.
  void retreat();

private:
  struct Helper {
    std::thread thread;
    bool running = false;
  };
  using Lock = std::unique_lock<std::mutex>;
  // Descriptors to be closed when nobody has to wait for it; -1 for none.
  using Closable = std::array<int, 2>;

  // Without the lock.
  bool read(AheadBatch &batch, char *buffer);
  void list(AheadBatch &batch, char *buffer);
  void publishRest(AheadBatch &batch, std::unique_ptr<AheadBatch> rest);
  void lookAtItems(AheadBatch &batch);
  void makeRoom(AheadBatch &batch);
  static AheadBatch &addFolder(AheadBatch &batch, const char *name);
  static bool openFolder(AheadBatch &batch);

  // With the lock.
  void help(std::size_t place);
  void startHelpers();
  void wakeHelpers();
  AheadBatch *takeOther() const;
  void readTaken(AheadBatch &batch, Lock &lock, std::unique_ptr<char[]> &buffer);
  Closable settle(AheadBatch &batch);
  void putBack(AheadBatch &batch);
  void insertAfter(AheadBatch *place, AheadBatch &batch);
  void unlink(AheadBatch &batch);
  int descriptorUnused(AheadBatch *folder);
  void dropTree(AheadBatch &batch, Lock &lock);
  void discard(AheadBatch &batch);
  static std::size_t bytesOf(const AheadBatch &batch);

  const Look look_;
  WalkHelpers helpers_;
  std::unique_ptr<AheadBatch> root_;
  std::unique_ptr<char[]> ownBuffer_; // of the walk's thread

  std::mutex mutex_;                 // guards all that follows and what batches say "for ReadAhead"
  std::condition_variable workLeft_; // for helpers
  std::condition_variable settled_;  // for the walk
  AheadBatch *head_ = nullptr;       // of the list
  std::atomic<std::size_t> waiting_{0}; // in the list and read by nobody
  std::size_t idle_ = 0;                // helpers that wait for work
  std::size_t unusedBytes_ = 0;
  std::vector<std::unique_ptr<AheadContent>> spare_;
  std::size_t openFolders_ = 0;
  bool walkWaits_ = false;
  bool failed_ = false; // nothing more is read ahead
  std::array<Helper, WalkHelpers::most> crew_;
};

} // namespace NS
