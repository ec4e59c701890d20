// The handlers that maintain the whole system: its logs, caches, indexes and
// permissions. Each runs the system's own tools and replies when they are done.
#include "Agent/KWPriviligedOperations.h"

#include "Additions/NSFileManager+FileModificationsAdditions.h"
#include "Agent/Answer.h"
#include "Agent/KWPrivilegedOperationProgress.h"
#include "Foundation/Base/SystemLog.h"
#include "Foundation/Desktop/AppKitVersion.h"
#include "Foundation/Text/WordList.h"
#include "Tools/KWLaunchdManager.h"
#include "Tools/KWPermissionsRepair.h"
#include "Tools/KWTaskRunner.h"
#include "Tools/SystemTools.h"

#include <cmath>

namespace kw {
namespace {

constexpr const char *syslogdLabel = "com.apple.syslogd";
constexpr const char *aslmanagerLabel = "com.apple.aslmanager";

// Systems from the first version up to, but without, the second have discoveryd
// as their name service.
constexpr double firstDiscoveryVersion = 1343.0;
constexpr double endOfDiscoveryVersions = 1348.0;

void logFailure(const std::string &message) {
  NS::SystemLog::shared().syslog(NS::SystemLogPriority::Error, message);
}

bool stopLogJobs() {
  for (const char *label : {syslogdLabel, aslmanagerLabel})
    if (!KWLaunchdManager::shared().stopAgentWithLabel(label)) {
      // A job stopped before this one stays stopped.
      logFailure(std::string("Failed to stop ") + label);
      return false;
    }
  return true;
}

// Tries both starts. The last message names aslmanager for either failure.
bool startLogJobs() {
  bool syslogdStarted = KWLaunchdManager::shared().startAgentWithLabel(syslogdLabel);
  if (!syslogdStarted)
    logFailure("Failed to start com.apple.syslogd");
  bool aslmanagerStarted = KWLaunchdManager::shared().startAgentWithLabel(aslmanagerLabel);
  if (syslogdStarted && aslmanagerStarted)
    return true;
  logFailure("Failed to start com.apple.aslmanager");
  return false;
}

bool eraseSystemLogStore() {
  if (!stopLogJobs())
    return false;
  if (!removeContentsOfDirectoryAtPath(NS::FileManager::defaultManager(), tools::logStore))
    logFailure("Failed to remove contents of /var/log/asl");
  return startLogJobs();
}

long long statusOf(const char *tool, const std::vector<std::string> &arguments) {
  return KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd(tool, arguments);
}

// Runs the second tool even when the first fails.
bool flushNameCaches() {
  double version = std::floor(NS::AppKitVersion::shared().number());
  long long first = 0;
  long long second = 0;
  if (version >= firstDiscoveryVersion && version < endOfDiscoveryVersions) {
    first = statusOf(tools::discoveryutil, NS::wordList("mdnsflushcache"));
    second = statusOf(tools::discoveryutil, NS::wordList("udnsflushcaches"));
  } else {
    first = statusOf(tools::dscacheutil, NS::wordList("-flushcache"));
    second = statusOf(tools::killall, NS::wordList("-HUP", "mDNSResponder"));
  }
  return (first | second) == 0;
}

} // namespace

void KWPriviligedOperations::removeASLWithReply(KWFlagReply reply) {
  bool erased = eraseSystemLogStore();
  answer(reply, erased);
}

void KWPriviligedOperations::flushDNSWithReply(KWFlagReply reply) {
  bool flushed = flushNameCaches();
  answer(reply, flushed);
}

void KWPriviligedOperations::runPeriodicScript(const std::string &scriptName, KWFlagReply reply) {
  static_cast<void>(statusOf(tools::periodic, NS::wordList(scriptName)));
  answer(reply, true);
}

void KWPriviligedOperations::startSpotlightReindexWithReply(KWFlagReply reply) {
  static_cast<void>(statusOf(tools::mdutil, NS::wordList("-E", "/")));
  answer(reply, true);
}

void KWPriviligedOperations::repairPermissionsWithReply(KWRepairReply reply) {
  KWPermissionsRepair repair;
  int processIdentifier = repair.repairPermissionsWithReportProgress(
      [this](bool, const std::optional<std::string> &chunk) {
        // The transport has no nil text, so a nil chunk becomes an empty one.
        KWPrivilegedOperationProgress::remoteObjectProxy(xpcConnection())
            ->receiveNewOutput(chunk.value_or(""));
      });
  reply(true, processIdentifier, std::nullopt);
}

void KWPriviligedOperations::removeDiagnosticLogsWithReply(KWDiagnosticLogsReply reply) {
  KWTaskRunner::shared().launchTask(tools::log, NS::wordList("erase", "--all"), "y",
                                    std::move(reply));
}

} // namespace kw
