// What is read of a folder ahead of a walk. For bodies of the seam only.
//
// A batch is some of the items of one folder, or the intent to read them. The
// first batch of a folder stands for the folder itself: it has its descriptor
// and its status. Where a folder is too large for one batch, the batches that
// follow hang at `rest`, one behind the other. The folders that are found among
// a batch's items hang at `folders`, each as the first batch of its own; so the
// batches are a tree of the same shape as the folders.
//
// A batch goes through four states. It waits until a thread takes it; that
// thread reads it, without a lock, and nobody else touches what it holds; then
// it is ready, and from there on belongs to the walk; and when the walk has
// used it, it is dropped. A thread that finds no memory or no descriptor puts it
// back as it was.
//
// Who may touch what: `state` may be read by anybody; a batch that is seen as
// ready is seen with all that it holds. The fields for the list and the count
// of uses are guarded by the lock of ReadAhead. All the rest belongs to the
// thread that reads the batch, and then to the walk.
#pragma once

#include "Foundation/FTS.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
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

struct AheadContent {
  std::vector<char> records;    // as the system listed them
  std::vector<AheadItem> items; // of those that AheadReader::isLookedAt, in their order

  std::size_t bytes() const { return records.capacity() + items.capacity() * sizeof(AheadItem); }
};

struct AheadBatch {
  enum class State : std::uint8_t { Waiting, Reading, Ready, Dropped };

  std::atomic<State> state{State::Waiting};

  // For the walk, once ready.
  FTSStat status;                        // of the folder, in its first batch
  int statusError = 0;                   // the status could not be had
  int openError = 0;                     // the folder could not be opened, or is none
  int readError = 0;                     // it could not be read behind these items
  std::unique_ptr<AheadContent> content; // never null
  AheadBatch *rest = nullptr;            // what follows in the folder; null at its end

  // Where it hangs; set before others see it.
  AheadBatch *above = nullptr;           // the folder that holds this one; null for the root
  AheadBatch *first = this;              // the folder itself
  const char *name = nullptr;            // of the folder; in the records of the one above
  std::unique_ptr<AheadBatch[]> folders; // found among the items
  std::size_t folderCount = 0;
  int level = 0;

  // Guarded by the lock: the list, and of first batches how many batches still
  // need the folder open, its own while it is read, those of its folders until
  // they are.
  AheadBatch *before = nullptr;
  AheadBatch *after = nullptr;
  std::size_t uses = 1;
  int descriptor = -1; // set by who reads the first batch

  // The folder that must be open for this batch to be read; null for the root.
  AheadBatch *source() const { return first == this ? above : first; }
  std::size_t bytes() const {
    return sizeof *this + folderCount * sizeof(AheadBatch) + (content ? content->bytes() : 0);
  }
};

} // namespace NS
