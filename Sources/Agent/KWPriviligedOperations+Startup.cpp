// The handlers for programs that start by themselves (launchd jobs, startup
// items, login items, launchd's environment) and for system software
// (extensions, receipts, architectures).
#include "Agent/KWPriviligedOperations.h"

#include "Additions/NSStringAdditions.h"
#include "Agent/Answer.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Desktop/SharedFileList.h"
#include "Foundation/Files/FileContents.h"
#include "Foundation/Processes/Process.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Text/StringUtilities.h"
#include "Foundation/Text/WordList.h"
#include "Foundation/Trees/FileManager.h"
#include "Protocol/Identity.h"
#include "Tools/KWDitoTask.h"
#include "Tools/KWKextManager.h"
#include "Tools/KWLaunchdManager.h"
#include "Tools/KWPkgutilTask.h"
#include "Tools/KWServiceManagementRemover.h"
#include "Tools/KWTaskRunner.h"
#include "Tools/SystemTools.h"

#include <algorithm>

namespace kw {
namespace {

// No shell takes the quotes off again: the tool gets them.
void runSystemStarter(const char *verb, const std::string &name) {
  static_cast<void>(KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd(
      tools::systemStarter, NS::wordList(verb, NS::stringWithFormat("\"%@\"", name))));
}

// Compares as the platform does: canonically equivalent spellings are equal.
bool comparesEqual(const std::string &left, const std::string &right) {
  if (left == right)
    return true;
  auto found = NS::rangeOfString(left, right);
  return found && *found == NS::ByteRange{0, left.size()};
}

// Leaves the job loaded: launchd forgets it at the next start, and to unload it
// here would end this process.
void removeOwnFiles() {
  NS::FileManager &manager = NS::FileManager::defaultManager();
  for (std::string_view path : {kAgentToolPath, kAgentJobPlistPath, kAgentRemovedSocketPath})
    static_cast<void>(manager.removeItemAtPath(std::string(path), nullptr));
}

bool isItemOfApp(NS::SharedFileListItem &item, const NS::URL &appURL, const std::string &appPath) {
  std::optional<NS::URL> url;
  constexpr auto flags = NS::SharedFileListNoUserInteraction | NS::SharedFileListDoNotMountVolumes;
  if (item.resolve(flags, url) == 0)
    return url && comparesEqual(url->path(), appURL.path());
  auto name = item.displayName();
  return name && comparesEqual(*name, appPath);
}

// Drops the library from every line and empty lines altogether. Only rebuilt
// lines have quotes.
std::string configurationWithoutLibrary(const std::string &unquoted, const std::string &library) {
  std::string result;
  for (std::size_t start = 0; start <= unquoted.size();) {
    std::size_t end = std::min(unquoted.find('\n', start), unquoted.size());
    std::optional<std::string> line = unquoted.substr(start, end - start);
    if (NS::rangeOfString(*line, "DYLD_INSERT_LIBRARIES"))
      line = KWLaunchdManager::shared().removeLibrary(library, *line);
    if (line && !line->empty())
      result += *line + "\n";
    start = end + 1;
  }
  return result;
}

// Backs up the content before this edit, in place of the backup of an earlier
// edit. An empty file is backed up too.
void backUpConfiguration() {
  NS::FileManager &manager = NS::FileManager::defaultManager();
  std::string backup = NS::stringByAppendingPathExtension(tools::launchdConfiguration, "prev");
  static_cast<void>(manager.removeItemAtPath(backup, nullptr));
  static_cast<void>(manager.copyItemAtPath(tools::launchdConfiguration, backup, nullptr));
}

} // namespace

void KWPriviligedOperations::removeLaunchdAgentAtPath(const std::string &plistPath,
                                                      KWFlagReply reply) {
  if (plistPath == kAgentJobPlistPath) {
    removeOwnFiles();
    NS::Process::shared().exit(0);
    return;
  }
  answer(reply, KWLaunchdManager::shared().removeAgentAtPath(plistPath));
}

void KWPriviligedOperations::enableLaunchdAgentAtPath(const std::string &plistPath,
                                                      KWFlagReply reply) {
  answer(reply, KWLaunchdManager::shared().enableAgentAtPath(plistPath));
}

void KWPriviligedOperations::disableLaunchdAgentAtPath(const std::string &plistPath,
                                                       KWFlagReply reply) {
  answer(reply, KWLaunchdManager::shared().disableAgentAtPath(plistPath));
}

void KWPriviligedOperations::removeSMLoginItem(const std::string &bundleID, KWFlagReply reply) {
  answer(reply, KWServiceManagementRemover::shared().removeSMLoginItem(bundleID, nullptr));
}

void KWPriviligedOperations::removePackageWithID(const std::string &packageID, KWFlagReply reply) {
  answer(reply, KWPkgutilTask().removePackageWithID(packageID));
}

void KWPriviligedOperations::removeKextAtPath(const std::string &path, KWFlagReply reply) {
  answer(reply, KWKextManager().removeKextAtPath(path));
}

void KWPriviligedOperations::slimBinaryWithPath(const std::string &path,
                                                const std::vector<std::string> &archs,
                                                KWFlagReply reply) {
  answer(reply, KWDitoTask::shared().slimBinaryAtPath(path, archs));
}

// The tool's status does not matter.
void KWPriviligedOperations::startStartupItem(const std::string &name, KWFlagReply reply) {
  runSystemStarter("start", name);
  answer(reply, true);
}

void KWPriviligedOperations::stopStartupItem(const std::string &name, KWFlagReply reply) {
  runSystemStarter("stop", name);
  answer(reply, true);
}

// Removes every matching item; the last removal decides.
void KWPriviligedOperations::removeGlobalLoginItemForAppWithPath(const std::string &appPath,
                                                                 KWFlagReply reply) {
  auto list = NS::SharedFileLists::shared().globalLoginItems();
  bool success = true;
  if (list) {
    NS::URL appURL = NS::URL::fileURLWithPath(appPath);
    for (const auto &item : list->copySnapshot())
      if (isItemOfApp(*item, appURL, appPath))
        success = list->removeItem(*item) == 0;
  }
  answer(reply, success);
}

// Answers at once when the file is missing, empty or invalid UTF-8, then writes
// it and answers again. Leaves the file and its backup alone when only a limit of
// this process keeps it from being read.
void KWPriviligedOperations::removeLibraryFromLauchdConf(const std::string &libraryPath,
                                                         KWFlagReply reply) {
  if (!NS::FileManager::defaultManager().fileExistsAtPath(tools::launchdConfiguration))
    answer(reply, true);
  NS::FileContents &files = NS::FileContents::shared();
  std::optional<NS::Error> failure;
  auto former = files.stringWithContentsOfFile(tools::launchdConfiguration, &failure);
  if (failure && NS::isLimitOfThisProcess(*failure)) {
    NS::Log("%@ is left as it is: %@", tools::launchdConfiguration, failure);
    return answer(reply, false);
  }
  backUpConfiguration();
  std::string text = std::move(former).value_or("");
  if (text.empty())
    answer(reply, true);
  std::erase(text, '"');
  std::string result = configurationWithoutLibrary(text, libraryPath);
  NS::Log("%@ before edit: %@\nafter: %@\n", tools::launchdConfiguration, text, result);
  answer(reply, files.writeToFileAtomically(tools::launchdConfiguration, result, nullptr));
}

} // namespace kw
