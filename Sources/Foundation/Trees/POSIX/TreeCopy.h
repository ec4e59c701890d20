// Copies a whole item to a name that does not exist yet. Internal to
// Foundation.
#pragma once

#include "Foundation/Files/POSIX/ItemLocation.h"
#include "Foundation/Trees/Internal/TreeOperations.h"
#include "Foundation/Trees/POSIX/Staging.h"

namespace NS {

class CopiedItems;

// A copy that is to replace its original refuses items that could not be
// removed afterwards (locked items, mount points), and is synced to the disk
// when it is complete.
enum class CopyPurpose { Copy, Move };

// A copy that is built in a folder near its destination and renamed into place
// when it is complete, so that the destination never holds a part of it. Until
// it is placed, the destruction of this object removes all of it. Only the end
// of the process can leave that folder, under a name that begins with
// ".keepwell-copy-", until the next copy to the same place removes it.
//
// The locations and paths must live as long as this object.
class StagedCopy {
public:
  StagedCopy(const ItemLocation &source, const std::string &srcPath, const ItemLocation &target,
             const std::string &dstPath, CopyPurpose purpose)
      : source_(source), srcPath_(srcPath), target_(target), dstPath_(dstPath), purpose_(purpose) {}

  // Copies the item and all items beneath it. Leaves out items that vanish
  // meanwhile. The record, if any, holds the copied items afterwards. Counts
  // items and bytes in the current progress, and stops when that is cancelled.
  TreeResult build(CopiedItems *record);
  // Renames the copy into place.
  TreeResult place();

private:
  TreeResult prepare();
  TreeResult failureAtTarget(TreeStep step, int error) const;

  const ItemLocation &source_;
  const std::string &srcPath_;
  const ItemLocation &target_;
  const std::string &dstPath_;
  const CopyPurpose purpose_;
  Staging staging_;
  ItemLocation unfinished_;
};

// Renames without replacing. On volumes that cannot do so in one step it takes
// the nearest means that they have. Returns 0, or an errno value.
int renameWithoutReplacing(const ItemLocation &source, const ItemLocation &target);

} // namespace NS
