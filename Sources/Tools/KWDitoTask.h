// Removes unwanted architectures from universal binaries.
//
// Keeps no state; any thread may call it. Blocks until the tool has ended.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <string>
#include <vector>

namespace kw {

class KWDitoTask : public NS::SharedInstance<KWDitoTask> { // (sic)
public:
  virtual ~KWDitoTask() = default;
  static KWDitoTask &real();

  // Replaces the binary by ditto's copy of it. The elements are ditto's own
  // options for the architectures, passed on unchanged. True on success or when
  // no item exists at the path. When ditto fails, the binary stays as it is; a
  // copy that ditto left (at the path followed by ".ditto") stays too. When the
  // copy cannot take the binary's place, the binary is already gone.
  virtual bool slimBinaryAtPath(const std::string &path,
                                const std::vector<std::string> &archsToLeave) const;
};

} // namespace kw
