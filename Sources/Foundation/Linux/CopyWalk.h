// The walk that copies a tree to a place where nothing is yet. For bodies of
// the seam only.
//
// Two chains of folders go side by side: one reads the original, the other is in
// the folder of the copy that corresponds to it. The copy for a move shares
// folders out to a crew; a copy that enters mount points does not, for only the
// whole chain tells of a folder that is its own ancestor.
#pragma once

#include "Foundation/Linux/TreeCopy.h"
#include "Foundation/POSIX/AttributeCopy.h"

#include <string>

namespace NS {

class CopiedItems;
class Staging;

// What is to be copied, and how. All must outlive the walk.
struct CopyTask {
  const ItemLocation &source;
  const std::string &srcPath;
  const ItemLocation &target;
  Staging &staging;
  CopyPurpose purpose;
  CopiedItems *record; // may be null
};

// Copies the item and all beneath it, and tells what was left out.
TreeResult copyWholeTree(const CopyTask &task, LeftOut &leftOut);

} // namespace NS
