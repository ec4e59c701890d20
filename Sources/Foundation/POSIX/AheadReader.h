// Reads one batch: opens the folder, lists it and looks at its items. For bodies
// of the seam only.
//
// Any number of threads read at once, each a batch of its own, and none of them
// holds the lock while it does: the system calls are nearly all of the time. A
// reader may touch the batch that it was given, and the descriptor of the folder
// above, which stays open because the batch still counts as one of its uses.
//
// A folder is opened, and its status asked of the open folder, which spares a
// second look-up of its name. Then as many records as fill a buffer are listed,
// and copied to the batch in their exact size. When the folder goes on beyond
// the buffer, the rest is published before the items are looked at, so that
// another thread goes on with the listing meanwhile.
//
// Everything that needs memory happens before the first item is looked at. What
// fails for want of memory or of descriptors tells nothing of the folder: such a
// batch is left as it was, and the walk reads the folder by itself.
#pragma once

#include "Foundation/POSIX/AheadBatch.h"
#include "Foundation/POSIX/DirectoryRecords.h"

#include <cstddef>
#include <functional>
#include <memory>

namespace NS {

class AheadReader {
public:
  // Levels below the root that are read ahead. It bounds the way back to a
  // folder that was closed.
  static constexpr int levels = 32;
  static constexpr std::size_t bufferSize = 64 * 1024;

  // Whether items are looked at that are known to be no folders.
  enum class Look { AtAll, AtFolders };
  // Told of the rest of a batch's folder, which it owns from then on.
  using Publisher = std::function<void(AheadBatch &batch, std::unique_ptr<AheadBatch> rest)>;

  AheadReader(Look look, Publisher publish) : look_(look), publish_(std::move(publish)) {}

  bool isLookedAt(std::uint8_t type) const { return look_ == Look::AtAll || mayBeFolder(type); }

  // The buffer is of bufferSize, aligned to eight bytes. False when memory or
  // descriptors have run out. Throws nothing.
  bool read(AheadBatch &batch, char *buffer) const;
  // Makes the batch what it was before it was read.
  static void forget(AheadBatch &batch);

private:
  template <typename Visit> void eachLookedAt(const AheadBatch &batch, Visit visit) const;
  bool readUnguarded(AheadBatch &batch, char *buffer) const;
  static bool openFolder(AheadBatch &batch);
  void list(AheadBatch &batch, char *buffer) const;
  void makeRoom(AheadBatch &batch) const;
  void lookAtItems(AheadBatch &batch) const;
  static AheadBatch &addFolder(AheadBatch &batch, const char *name);

  const Look look_;
  const Publisher publish_;
};

} // namespace NS
