// Reads one batch: opens the folder, lists it and looks at its items. Internal
// to Foundation.
//
// Any number of threads read at once, each a batch of its own, and none holds
// the lock meanwhile: the system calls take nearly all of the time. A reader
// may touch its own batch, and the descriptor of the folder above, which stays
// open because the batch still counts as one of its uses.
//
// A folder is opened, and its status asked of the open folder, which spares a
// second look-up of its name. Then as many records as fill the thread's own
// buffer are listed. When the folder goes on beyond the buffer, the rest is
// published before the items are looked at, so that another thread goes on with
// the listing meanwhile. The batch gets only the items that the walk will
// return: with a sieve the walk's thread hardly touches memory that another
// thread wrote.
//
// All allocation comes before the look at the first item. A lack of memory or
// of descriptors says nothing about the folder: the batch then stays unchanged,
// and the walk reads the folder by itself.
#pragma once

#include "Foundation/Walking/Internal/AheadBatch.h"
#include "Foundation/Walking/POSIX/DirectoryRecords.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <utility>

namespace NS {

class AheadReader {
public:
  // The number of levels below the root that are read ahead. The walk has to open
  // at most so many folders to get back to one that it read only ahead.
  static constexpr int levels = 32;
  static constexpr std::size_t bufferSize = 64 * 1024;

  // Called with the rest of a batch's folder, which it owns from then on.
  using Publisher = std::function<void(AheadBatch &batch, std::unique_ptr<AheadBatch> rest)>;

  AheadReader(const ItemLook &look, Publisher publish)
      : look_(look), publish_(std::move(publish)) {}

  // The buffer is of bufferSize, aligned to eight bytes. False when memory or
  // descriptors have run out. Throws nothing.
  bool read(AheadBatch &batch, char *buffer) const;
  // Restores the batch to its state before it was read.
  static void forget(AheadBatch &batch);

private:
  bool readUnguarded(AheadBatch &batch, char *buffer) const;
  static bool openFolder(AheadBatch &batch);
  std::span<const char> list(AheadBatch &batch, char *buffer) const;
  static void makeRoom(AheadBatch &batch, std::span<const char> records);
  void lookAtItems(AheadBatch &batch, std::span<const char> records) const;
  static void keep(AheadBatch &batch, const DirectoryRecord &record, const FoundItem &found,
                   bool isReadAhead);

  const ItemLook look_;
  const Publisher publish_;
};

} // namespace NS
