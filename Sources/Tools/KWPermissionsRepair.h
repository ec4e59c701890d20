// Repairs the permissions of the system's packages, with the tool's output as
// it comes.
//
// Keeps nothing between calls.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace kw {

// The flag is always false. The text is nil for a chunk that is no UTF-8 by
// itself, and empty once the tool has closed its output.
using KWReportProgress = std::function<void(bool flag, const std::optional<std::string> &chunk)>;

class KWPermissionsRepair {
public:
  // Blocks until the tool has ended and returns the identifier of its process,
  // whatever its exit status. Raises InvalidArgumentException when it cannot be
  // started.
  //
  // The block is called on another thread, one call at a time and none after
  // the return. Each notice of new output is answered by two reads, of which
  // only the second is reported: every other chunk is dropped, as ever.
  int repairPermissionsWithReportProgress(const KWReportProgress &reportProgress) const;
};

} // namespace kw
