// The forms that block: each is the other form and a wait.
#include "Client/Client.h"

namespace kw {

TerminationReply Client::pleaseTerminate(const RequestOptions &options) {
  return pleaseTerminateAsync(options).get();
}

EchoReply Client::echo(const std::string &text, const RequestOptions &options) {
  return echoAsync(text, options).get();
}

ExistenceReply Client::fileExistsAtPath(const std::string &path, const RequestOptions &options) {
  return fileExistsAtPathAsync(path, options).get();
}

FlagReply Client::moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                                 const RequestOptions &options) {
  return moveItemAtPathAsync(srcPath, dstPath, options).get();
}

RemovalReply Client::removeItemAtPath(const std::string &path, const RequestOptions &options) {
  return removeItemAtPathAsync(path, options).get();
}

FlagReply Client::securelyRemoveItemAtPath(const std::string &path, const RequestOptions &options) {
  return securelyRemoveItemAtPathAsync(path, options).get();
}

FlagReply Client::moveToTrashItemAtPath(const std::string &path, const RequestOptions &options) {
  return moveToTrashItemAtPathAsync(path, options).get();
}

FlagReply Client::truncateFileAtPath(const std::string &path, const RequestOptions &options) {
  return truncateFileAtPathAsync(path, options).get();
}

SizeReply Client::sizeOfItemAtPath(const std::string &path, const RequestOptions &options) {
  return sizeOfItemAtPathAsync(path, options).get();
}

FlagReply Client::removePackageWithID(const std::string &packageID, const RequestOptions &options) {
  return removePackageWithIDAsync(packageID, options).get();
}

FlagReply Client::removeKextAtPath(const std::string &path, const RequestOptions &options) {
  return removeKextAtPathAsync(path, options).get();
}

FlagReply Client::slimBinaryWithPath(const std::string &path, const std::vector<std::string> &archs,
                                     const RequestOptions &options) {
  return slimBinaryWithPathAsync(path, archs, options).get();
}

JobRemovalReply Client::removeLaunchdAgentAtPath(const std::string &plistPath,
                                                 const RequestOptions &options) {
  return removeLaunchdAgentAtPathAsync(plistPath, options).get();
}

FlagReply Client::enableLaunchdAgentAtPath(const std::string &plistPath,
                                           const RequestOptions &options) {
  return enableLaunchdAgentAtPathAsync(plistPath, options).get();
}

FlagReply Client::disableLaunchdAgentAtPath(const std::string &plistPath,
                                            const RequestOptions &options) {
  return disableLaunchdAgentAtPathAsync(plistPath, options).get();
}

FlagReply Client::removeSMLoginItem(const std::string &bundleID, const RequestOptions &options) {
  return removeSMLoginItemAsync(bundleID, options).get();
}

FlagReply Client::removeGlobalLoginItemForAppWithPath(const std::string &appPath,
                                                      const RequestOptions &options) {
  return removeGlobalLoginItemForAppWithPathAsync(appPath, options).get();
}

AttemptReply Client::startStartupItem(const std::string &name, const RequestOptions &options) {
  return startStartupItemAsync(name, options).get();
}

AttemptReply Client::stopStartupItem(const std::string &name, const RequestOptions &options) {
  return stopStartupItemAsync(name, options).get();
}

FlagReply Client::removeLibraryFromLauchdConf(const std::string &libraryPath,
                                              const RequestOptions &options) {
  return removeLibraryFromLauchdConfAsync(libraryPath, options).get();
}

FlagReply Client::removeASL(const RequestOptions &options) {
  return removeASLAsync(options).get();
}

RepairReply Client::repairPermissions(const Progress &progress, const RequestOptions &options) {
  return repairPermissionsAsync(progress, options).get();
}

AttemptReply Client::runPeriodicScript(const std::string &scriptName,
                                       const RequestOptions &options) {
  return runPeriodicScriptAsync(scriptName, options).get();
}

AttemptReply Client::startSpotlightReindex(const RequestOptions &options) {
  return startSpotlightReindexAsync(options).get();
}

FlagReply Client::flushDNS(const RequestOptions &options) {
  return flushDNSAsync(options).get();
}

LogErasureReply Client::removeDiagnosticLogs(const RequestOptions &options) {
  return removeDiagnosticLogsAsync(options).get();
}
} // namespace kw
