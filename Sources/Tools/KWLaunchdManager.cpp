// Manages jobs by launchctl's command lines.
#include "Tools/KWLaunchdManager.h"

#include "Additions/NSObjectAdditions.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Processes/Launchd.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Text/WordList.h"
#include "Foundation/Trees/FileManager.h"
#include "Tools/KWTaskRunner.h"
#include "Tools/SystemTools.h"

#include <vector>

namespace kw {
namespace {

constexpr const char *privilegedToolsFolder = "/Library/PrivilegedHelperTools";

bool launchctlSucceeds(const std::vector<std::string> &arguments) {
  return KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd(tools::launchctl, arguments,
                                                                  true) == 0;
}

// launchctl reports a failed unload only by its output, not by its status.
bool unloadingSucceeds(const std::vector<std::string> &arguments) {
  auto output = KWTaskRunner::shared().launchTaskAndGetOutput(tools::launchctl, arguments, true);
  if (output)
    NS::Log("Unloading error: %@", *output);
  return !output;
}

} // namespace

KWLaunchdManager &KWLaunchdManager::real() {
  return NS::lastingInstance<KWLaunchdManager>();
}

bool KWLaunchdManager::stopAgentWithLabel(const std::optional<std::string> &label) const {
  return label && launchctlSucceeds(NS::wordList("stop", *label));
}

bool KWLaunchdManager::startAgentWithLabel(const std::optional<std::string> &label) const {
  return label && launchctlSucceeds(NS::wordList("start", *label));
}

bool KWLaunchdManager::loadLaunchAgentWithConfigPath(const std::optional<std::string> &path) const {
  if (!path)
    return false;
  return isLoadedLaunchAgentWithConfigPath(path) ||
         launchctlSucceeds(NS::wordList("load", "-w", *path));
}

bool KWLaunchdManager::unloadLaunchAgentWithConfigPath(
    const std::optional<std::string> &path) const {
  if (!path || !unloadingSucceeds(NS::wordList("unload", *path)))
    return false;
  return removePrivilegedToolWithLabel(
      NS::stringByDeletingPathExtension(NS::lastPathComponent(*path)));
}

bool KWLaunchdManager::enableAgentAtPath(const std::optional<std::string> &path) const {
  if (!path)
    return false;
  return isLoadedLaunchAgentWithConfigPath(path) || loadLaunchAgentWithConfigPath(path);
}

bool KWLaunchdManager::unloadAgentAtPath(const std::optional<std::string> &path) const {
  return _unloadAgentAtPath(path, false);
}

bool KWLaunchdManager::disableAgentAtPath(const std::optional<std::string> &path) const {
  return _unloadAgentAtPath(path, true);
}

bool KWLaunchdManager::_unloadAgentAtPath(const std::optional<std::string> &path,
                                          bool shouldDisable) const {
  if (!path)
    return false;
  if (!isLoadedLaunchAgentWithConfigPath(path))
    return true;
  // Before the unload, since a lack of descriptors for it must not leave the job
  // unloaded and running.
  auto label = jobLabelForLaunchdAgent(path);
  std::vector<std::string> arguments = NS::wordList("unload");
  if (shouldDisable)
    arguments.push_back("-w");
  arguments.push_back(*path);
  if (!unloadingSucceeds(arguments))
    return false;
  // A job may go on running after its unload.
  static_cast<void>(stopAgentWithLabel(label));
  return true;
}

bool KWLaunchdManager::removeAgentAtPath(const std::optional<std::string> &path) const {
  return path && unloadLaunchAgentWithConfigPath(path) &&
         NS::FileManager::defaultManager().removeItemAtPath(*path, nullptr);
}

bool KWLaunchdManager::removePrivilegedToolWithLabel(
    const std::optional<std::string> &label) const {
  if (!label)
    return false;
  // Any other label would mean the folder itself or lead out of it.
  if (!NS::isFileName(*label))
    return true;
  NS::FileManager &manager = NS::FileManager::defaultManager();
  std::string path = NS::stringByAppendingPathComponent(privilegedToolsFolder, *label);
  if (!manager.fileExistsAtPath(path))
    return true;
  std::optional<NS::Error> error;
  if (manager.removeItemAtPath(path, &error))
    return true;
  NS::Log("Removing error: %@ file: %@", error, path);
  return false;
}

bool KWLaunchdManager::isLoadedLaunchAgentWithConfigPath(
    const std::optional<std::string> &path) const {
  auto label = path ? jobLabelForLaunchdAgent(path) : std::nullopt;
  if (!label)
    return false;
  // The query ends by itself within the same time, so a launchd that never
  // answers leaves no thread waiting.
  bool isLoaded = false;
  KWRunBlockAndWaitWithTimeout(
      [&](const Block &completion) {
        isLoaded =
            NS::Launchd::shared().replyToRequest(NS::Launchd::GetJobKey, *label, jobQueryTimeout) ==
            NS::LaunchDataType::Dictionary;
        completion();
      },
      jobQueryTimeout);
  return isLoaded;
}

} // namespace kw
