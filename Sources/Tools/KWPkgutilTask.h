// Makes the system forget installed packages.
//
// Keeps nothing between calls. Blocks until the tool has ended.
#pragma once

#include <optional>
#include <string>

namespace kw {

class KWPkgutilTask {
public:
  // Forgets the receipt; the files that the package installed stay. True when
  // pkgutil says so (or is not there); false for nil without running anything.
  bool removePackageWithID(const std::optional<std::string> &packageID) const;
};

} // namespace kw
