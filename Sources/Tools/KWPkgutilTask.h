// Makes the system forget installed packages.
//
// Keeps no state between calls. Blocks until the tool has ended.
#pragma once

#include <optional>
#include <string>

namespace kw {

class KWPkgutilTask {
public:
  // Forgets the receipt and leaves the files that the package installed. True
  // when pkgutil ends with status 0 (or does not exist); false for nil, without
  // a run.
  bool removePackageWithID(const std::optional<std::string> &packageID) const;
};

} // namespace kw
