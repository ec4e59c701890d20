// Forgetting a package's receipt.
#include "Tools/KWPkgutilTask.h"

#include "Tools/KWTaskRunner.h"

namespace kw {

bool KWPkgutilTask::removePackageWithID(const std::optional<std::string> &packageID) const {
  if (!packageID)
    return false;
  return KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/usr/sbin/pkgutil",
                                                                  {"--forget", *packageID}) == 0;
}

} // namespace kw
