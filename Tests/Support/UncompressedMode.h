// Logical sizes for as long as it lives.
#pragma once

#include "Tools/RVFileSizer.h"

namespace kwtest {

class UncompressedMode {
public:
  UncompressedMode() { kw::RVFileSizer::shared().setReturnUncompressedFileSize(true); }
  ~UncompressedMode() { kw::RVFileSizer::shared().setReturnUncompressedFileSize(false); }
  UncompressedMode(const UncompressedMode &) = delete;
  UncompressedMode &operator=(const UncompressedMode &) = delete;
};

} // namespace kwtest
