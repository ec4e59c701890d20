// Forgetting a package's receipt.
#include "Tools/KWPkgutilTask.h"

#include "Foundation/Text/WordList.h"
#include "Tools/KWTaskRunner.h"
#include "Tools/SystemTools.h"

namespace kw {

bool KWPkgutilTask::removePackageWithID(const std::optional<std::string> &packageID) const {
  if (!packageID)
    return false;
  return KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd(
             tools::pkgutil, NS::wordList("--forget", *packageID)) == 0;
}

} // namespace kw
