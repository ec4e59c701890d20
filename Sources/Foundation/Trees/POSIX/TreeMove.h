// A move to another volume, step by step. Internal to Foundation.
#pragma once

#include "Foundation/Files/POSIX/ItemLocation.h"
#include "Foundation/Trees/POSIX/CopiedItems.h"
#include "Foundation/Trees/POSIX/TreeCopy.h"

#include <string>

namespace NS {

// The move removes only items of the original that it has copied in their
// present state: when others change, add or exchange items meanwhile, a step
// fails. Items that vanish meanwhile make no step fail. Call the steps in this
// order, each after the success of the one before; the locations and paths must
// outlive this object.
class MoveAcross {
public:
  MoveAcross(const ItemLocation &source, const std::string &srcPath, const ItemLocation &target,
             const std::string &dstPath)
      : source_(source), srcPath_(srcPath), target_(target), dstPath_(dstPath),
        copy_(source, srcPath, target, dstPath, CopyPurpose::Move) {}

  // Refuses items that could not be removed afterwards, and makes a whole copy
  // that is on the disk but not in its place.
  TreeResult copy();
  // Compares the original with the record of the copy, and renames the copy
  // into place. On failure the original is whole and the copy is removed.
  TreeResult place();
  // Removes the original, each item only if it is unchanged since it was
  // copied. On failure the copy stays beside the rest of the original.
  TreeResult removeOriginal();

private:
  const ItemLocation &source_;
  const std::string &srcPath_;
  const ItemLocation &target_;
  const std::string &dstPath_;
  CopiedItems copied_;
  StagedCopy copy_;
};

} // namespace NS
