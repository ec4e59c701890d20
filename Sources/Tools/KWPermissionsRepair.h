// Repairs the permissions of the system's packages and reports the tool's
// output as it arrives.
//
// Keeps no state between calls.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace kw {

// The flag is always false. The text is nil for a chunk that is invalid UTF-8
// by itself, and empty once the tool has closed its output.
using KWReportProgress = std::function<void(bool flag, const std::optional<std::string> &chunk)>;

class KWPermissionsRepair {
public:
  // Blocks until the tool has ended and returns the identifier of its process,
  // for any exit status. Raises InvalidArgumentException when the tool cannot
  // be started.
  //
  // Calls the block on another thread, one call at a time and none after the
  // return. Reads twice for each notice of new output and reports only the
  // second read, so it drops every other chunk. Clients rely on this.
  int repairPermissionsWithReportProgress(const KWReportProgress &reportProgress) const;
};

} // namespace kw
