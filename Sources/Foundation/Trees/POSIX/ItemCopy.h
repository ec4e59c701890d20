// Copies one item that is not a folder, and the attributes of any item.
// Internal to Foundation.
#pragma once

#include "Foundation/Files/POSIX/AttributeCopy.h"
#include "Foundation/Files/POSIX/ItemCalls.h"
#include "Foundation/Walking/Internal/TreeOutcome.h"

#include <ctime>
#include <sys/types.h>

namespace NS {

// Reads the status of the item itself, never of a link's target. An empty name
// means the open item.
StepOutcome readStatus(int folder, const char *name, ItemStatus &status);

// Tells whether an item with this time of change may change at the time "now" and
// get the same time of change. The system takes that time from a clock that advances
// by ticks of up to 10 ms, and of more where the host of a virtual machine
// holds them back. Linux may also give an item a time within the tick that
// another item got from an exact clock, so the time can be ahead of the clock, even
// in its next second. A time further ahead is from before the clock was set back.
bool mayChangeUnnoticed(const timespec &changed, const timespec &now);

// Copies the data of an open file; holes stay holes. Leaves out data appended
// to the source meanwhile. Stops with ECANCELED when the current progress is
// cancelled.
StepOutcome copyData(int source, int target, off_t size);

// Copies owner, extended attributes (access lists included), mode and times
// from one open item or node to another. Leaves out and notes attributes that
// the target's volume cannot hold, or that this process may not set; the copy
// then grants no access that the original denied.
StepOutcome copyMetadata(int source, int target, const ItemStatus &status, LeftOut &leftOut);

// Makes the item, which must not exist yet, with all of the above. The status
// is that of the name on entry. On return it is that of the copied item itself,
// from before its data was read. isExchanged() when the name means an item of
// another kind by now.
StepOutcome copyFile(int sourceFolder, const char *name, int targetFolder, const char *targetName,
                     ItemStatus &status, LeftOut &leftOut);
StepOutcome copyNode(int sourceFolder, const char *name, int targetFolder, const char *targetName,
                     ItemStatus &status, LeftOut &leftOut);

} // namespace NS
