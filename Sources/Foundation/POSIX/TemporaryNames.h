// Names for what is built beside its place and then renamed into it, and the
// lock that tells what is being built from what a process left that ended
// early. For bodies of the seam only.
//
// The names are numbered, so that whoever builds next in a folder meets what
// was left there without searching it.
#pragma once

#include <string>
#include <sys/types.h>

namespace NS {

// How many names are looked at. What is built under later ones, when more are
// built at once in one folder, stays when its process ends early.
inline constexpr unsigned temporarySlots = 16;

// The prefix and the slot's number, or random digits for later slots.
std::string temporaryName(const char *prefix, unsigned slot);

// Takes the lock of an open item, until the descriptor is closed. Asked by
// whoever has made the item, to keep it, and by whoever finds it, before
// removing it. 0, or an errno value: EWOULDBLOCK when a living process holds
// the lock, ESTALE when the name means another item or the item is neither this
// process's user's nor the given owner's, else what volumes answer that keep no
// locks.
int takeOver(int folder, const std::string &name, int item, uid_t owner);

} // namespace NS
