// The items of a folder that are read ahead of a walk. Internal to Foundation.
//
// A batch is some of the items of one folder, or the intent to read them. The
// first batch of a folder represents the folder itself: it has its descriptor
// and its status. When a folder is too large for one batch, the following
// batches hang at `rest`, one after the other. The folders found among a
// batch's items hang at `folders`, each as the first batch of its own; so the
// batches are a tree of the same shape as the folders.
//
// A batch goes through four states. It waits until a thread takes it. That
// thread reads it, without a lock, and no other thread touches its contents.
// Then it is ready, and from there on belongs to the walk. When the walk has
// used it, it is dropped. A thread without memory or descriptors puts it back
// unchanged.
//
// Threads and fields: any thread may read `state`; after a batch is seen as
// ready, all its contents are visible. The lock of ReadAhead guards the fields
// for the list and the count of uses. All others belong to the thread that
// reads the batch, and then to the walk.
#pragma once

#include "Foundation/Walking/Internal/ItemLook.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace NS {

struct AheadBatch;

// An item that the walk will return. One that is a folder by its record is
// looked at through its open descriptor, which spares a look-up of its name.
struct AheadItem {
  const char *name; // in the content
  FoundItem found;
  AheadBatch *folder = nullptr; // the batch with its contents and its status
};

struct AheadContent {
  std::vector<AheadItem> items; // in the order of the listing
  std::vector<char> names;      // of the items, each with its NUL

  std::size_t bytes() const { return names.capacity() + items.capacity() * sizeof(AheadItem); }
};

struct AheadBatch {
  enum class State : std::uint8_t { Waiting, Reading, Ready, Dropped };

  std::atomic<State> state{State::Waiting};

  // For the walk, once ready.
  FoundItem found;                       // the folder, in its first batch
  int openError = 0;                     // the folder could not be opened, or is not a folder
  int readError = 0;                     // it could not be read after these items
  std::unique_ptr<AheadContent> content; // never null
  HeldItems held;                        // by the walk's sieve
  std::int64_t position = 0;             // in the folder, after these items
  AheadBatch *rest = nullptr;            // the next batch of the folder; null at its end

  // Where it hangs; set before others see it.
  AheadBatch *above = nullptr;           // the folder that holds this one; null for the root
  AheadBatch *first = this;              // the folder itself
  const char *name = nullptr;            // of the folder; in the content of the one above
  std::unique_ptr<AheadBatch[]> folders; // found among the items
  std::size_t folderCount = 0;
  int level = 0;

  // Guarded by the lock: the links of the list. And for a first batch: the number
  // of batches that still need the folder open, and its descriptor. Its own
  // batches need it until they are read, and so do the first batches of the
  // folders in it.
  AheadBatch *before = nullptr;
  AheadBatch *after = nullptr;
  std::size_t uses = 1;
  int descriptor = -1; // set by the thread that reads the first batch

  // The folder that must be open for this batch to be read; null for the root.
  AheadBatch *source() const { return first == this ? above : first; }
  std::size_t bytes() const {
    return sizeof *this + folderCount * sizeof(AheadBatch) + (content ? content->bytes() : 0);
  }
};

} // namespace NS
