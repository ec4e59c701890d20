// The patience of an operation when this process or its host has run out of a
// resource.
#pragma once

#include "Foundation/Base/ResourceShortage.h"

namespace NS {

// Limits the retries of one operation.
class Patience {
public:
  // Blocks for a while, longer each time, ten seconds in all, and returns true.
  // Returns false at once when that time is used up, when the current request was
  // cancelled, and for an errno value of another cause.
  bool waitOut(int errnum);

private:
  unsigned waits_ = 0;
};

} // namespace NS
