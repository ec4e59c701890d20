// The access list and the other extended attributes of an item, taken over by
// one that is to stand in its place. For bodies of the seam only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace NS {

// What a copy had to do without; for the log.
struct LeftOut {
  std::uint64_t times = 0;
  // The first of them, and why.
  std::string what;
  int errnum = 0;

  void note(std::string_view thing, int error);
  // Writes one line about the copy at this path, unless there is nothing to say.
  void report(const std::string &copy) const;
};

// Whether this errno value of a call that describes an item (its owner,
// attributes, access list, mode or times) means that the volume cannot hold it
// or that this process may not set it, rather than that something is broken.
// What describes an item is then left out of its copy.
bool mayBeLeftOut(int error);

// What becomes of the source's data in the target: attributes that vouch for
// data (capabilities, signatures) go only with the same.
enum class CopiedData { Same, Another };

// Gives an open item the attributes of another; descriptors that only stand for
// an item will do where the host has such. The target keeps no access list that
// it inherited from its folder and the source does not have. What the volume
// cannot hold, or this process may not read or set, is left out and noted.
//
// The mode is that of the source and becomes the one to set on the target
// afterwards: the same, or without the source's access list one that lets
// nobody in whom the list keeps out. 0 or an errno value.
int copyAttributes(int source, int target, CopiedData data, mode_t &mode, LeftOut &leftOut);

} // namespace NS
