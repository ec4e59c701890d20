// Copying a whole item under a name that does not exist yet. For bodies of the
// seam only.
#pragma once

#include "Foundation/Linux/TreeOperations.h"

namespace NS {

struct ItemLocation;

// A copy that is to take its original's place refuses what could not be
// removed afterwards (locked items, mount points) and is on the disk when it
// is in place.
enum class CopyPurpose { Copy, Move };

// Builds the copy in a folder beside its destination and renames it into place
// when it is complete, so that the destination never holds a part of it. On
// failure nothing is left; only the end of the process can leave that folder,
// under a name that begins with ".keepwell-copy-", until the next copy into
// the same folder removes it.
TreeResult copyInto(const ItemLocation &source, const std::string &srcPath,
                    const ItemLocation &target, const std::string &dstPath, CopyPurpose purpose);

// Renames without replacing, on volumes that cannot do so in one step by the
// nearest means they have. 0, or an errno value.
int renameWithoutReplacing(const ItemLocation &source, const ItemLocation &target);

} // namespace NS
