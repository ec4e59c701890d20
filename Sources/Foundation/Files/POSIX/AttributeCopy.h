// Copies the access list and the other extended attributes of an item to the
// one that takes its place. Internal to Foundation.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace NS {

// The attributes that a copy left out; for the log.
struct LeftOut {
  std::uint64_t times = 0;
  // The first of them, and why.
  std::string what;
  int errnum = 0;

  // Counts one more, and keeps the first.
  void note(std::string_view thing, int error);
  // Writes one line about the copy at this path, unless there is nothing to say.
  void report(const std::string &copy) const;
};

// Tells whether this errno value of a call for an attribute of an item (its
// owner, attributes, access list, mode or times) means that the volume cannot
// hold it or that this process may not set it, rather than a real failure. The
// copy then leaves the attribute out.
bool mayBeLeftOut(int error);

// Whether the target gets the source's data: attributes that vouch for data
// (capabilities, signatures) go only with the same data.
enum class CopiedData { Same, Another };

// Gives an item the attributes of another, both by descriptors; on Linux these
// may be of O_PATH. Removes an access list that the target inherited from its
// folder and the source does not have. Leaves out and notes attributes that the
// volume cannot hold, or that this process may not read or set. Blocks.
// Thread-safe.
//
// The mode is that of the source on entry, and on return the one to set on the
// target: the same, or, without the source's access list, one that grants no
// access that the list denied. Returns 0 or an errno value.
int copyAttributes(int source, int target, CopiedData data, mode_t &mode, LeftOut &leftOut);

} // namespace NS
