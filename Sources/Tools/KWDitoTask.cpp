// Slimming a universal binary.
#include "Tools/KWDitoTask.h"

#include "Additions/NSFileManager+FileModificationsAdditions.h"
#include "Foundation/Base/Log.h"
#include "Tools/KWTaskRunner.h"
#include "Tools/SystemTools.h"

#include <cerrno>

namespace kw {
KWDitoTask &KWDitoTask::real() {
  return NS::lastingInstance<KWDitoTask>();
}

bool KWDitoTask::slimBinaryAtPath(const std::string &path,
                                  const std::vector<std::string> &archsToLeave) const {
  NS::FileManager &manager = NS::FileManager::defaultManager();
  if (!manager.fileExistsAtPath(path))
    return true;
  std::string temporaryPath = path + ".ditto";
  std::vector<std::string> arguments = archsToLeave;
  arguments.push_back(path);
  arguments.push_back(temporaryPath);
  if (KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd(tools::ditto, arguments) != 0)
    return false;
  std::optional<NS::Error> error;
  // A tool that is missing or cannot be started counts as done. Without this
  // check the move would remove the binary for a copy that does not exist.
  if (!manager.fileExistsAtPath(temporaryPath)) {
    NS::Log("Can't copy with error %@",
            NS::fileError(ENOENT, temporaryPath, NS::FileAccess::Reading));
    return false;
  }
  bool moved = moveItemAtPath(manager, temporaryPath, path, false, true, &error);
  if (!moved)
    NS::Log("Can't copy with error %@", error);
  return moved;
}

} // namespace kw
