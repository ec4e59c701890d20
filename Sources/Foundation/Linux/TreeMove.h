// A move to another volume, step by step. For bodies of the seam only.
#pragma once

#include "Foundation/Linux/CopiedItems.h"
#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/Linux/TreeCopy.h"

#include <string>

namespace NS {

// Nothing of the original goes that was not copied as it is: whatever others
// change, add or exchange in it meanwhile makes a step fail. What vanishes
// meanwhile makes none fail. To be called in this order, each after the success
// of the one before; the locations and paths must live as long as this object.
class MoveAcross {
public:
  MoveAcross(const ItemLocation &source, const std::string &srcPath, const ItemLocation &target,
             const std::string &dstPath)
      : source_(source), srcPath_(srcPath), target_(target), dstPath_(dstPath),
        copy_(source, srcPath, target, dstPath, CopyPurpose::Move) {}

  // Refuses what could not be removed afterwards, and makes a whole copy that
  // is on the disk but not in its place.
  TreeResult copy();
  // Compares the original with what was copied, and renames the copy into
  // place. When it fails the original is whole and the copy goes.
  TreeResult place();
  // Removes the original, each item only if it still is what was copied. When
  // it fails the copy stays beside what is left of the original.
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
