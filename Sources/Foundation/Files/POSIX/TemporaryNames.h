// Names for items that are built beside their place and then renamed into it,
// and a lock on each. The lock tells an item under construction from the
// leftover of a process that ended early. Internal to Foundation.
//
// The names are numbered, so that the next work in a folder meets leftovers
// without a search.
#pragma once

#include <string>
#include <sys/types.h>

namespace NS {

// The number of names that the next work looks at. When more items are built at
// once in one folder, the others stay if their process ends early.
inline constexpr unsigned temporarySlots = 16;

// The prefix and the slot's number, or random digits for later slots.
std::string temporaryName(const char *prefix, unsigned slot);

// Takes the lock of an open item, until the descriptor is closed. The maker of
// the item calls it to keep the item; a finder calls it before removing the
// item. Returns 0 or an errno value: EWOULDBLOCK when a living process holds
// the lock, ESTALE when the name means another item or the item is neither this
// process's user's nor the given owner's, else the error of a volume without
// locks.
int takeOver(int folder, const std::string &name, int item, uid_t owner);

} // namespace NS
