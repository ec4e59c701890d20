// The walk that copies a tree to a place where nothing is yet. Internal to
// Foundation.
//
// Two chains of folders go side by side: one reads the original, the other is in
// the folder of the copy that corresponds to it. The copy for a move shares
// folders out to a crew. A copy that enters mount points does not: only the whole
// chain shows whether a folder is its own ancestor.
#pragma once

#include "Foundation/Files/POSIX/AttributeCopy.h"
#include "Foundation/Trees/POSIX/TreeCopy.h"

#include <string>

namespace NS {

class CopiedItems;
class Staging;

// The source, the destination and the options of a copy. All must outlive the
// walk.
struct CopyTask {
  const ItemLocation &source;
  const std::string &srcPath;
  const ItemLocation &target;
  Staging &staging;
  CopyPurpose purpose;
  CopiedItems *record; // may be null
};

// Copies the item and all items beneath it, and notes the attributes that it
// leaves out.
TreeResult copyWholeTree(const CopyTask &task, LeftOut &leftOut);

} // namespace NS
