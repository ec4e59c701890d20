// The object that each connection exports: turns every request into calls of
// Tools and Additions, and their results into its reply. Each kind of work has
// a file of handlers.
//
// Its only state is its connection; every request is independent of earlier
// ones. It skips a null reply block, except in the two methods whose reply must
// not be null.
#pragma once

#include "Agent/KWPrivilegedOperation.h"
#include "Service/XPCConnection.h"

#include <memory>
#include <mutex>

namespace kw {

class KWPriviligedOperations : public KWPrivilegedOperation { // (sic)
public:
  // The connection that owns this object, held weakly: null once it is gone.
  std::shared_ptr<NS::XPCConnection> xpcConnection() const;
  void setXPCConnection(const std::shared_ptr<NS::XPCConnection> &connection);

  // +Files.cpp
  void pleaseTerminate() override;
  void echo(const std::optional<std::string> &text, KWEchoReply reply) override;
  void fileExistsAtPath(const std::string &path, KWFlagReply reply) override;
  void moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                      KWFlagReply reply) override;
  void removeItemAtPath(const std::string &path, KWFlagReply reply) override;
  void securelyRemoveItemAtPath(const std::string &path, KWFlagReply reply) override;
  void moveToTrashItemAtPath(const std::string &path, KWFlagReply reply) override;
  void truncateFileAtPath(const std::string &path, KWFlagReply reply) override;
  void sizeOfItemAtPath(const std::string &path, KWSizeReply reply) override;

  // Startup items, launchd jobs, login items, extensions and packages.
  void removePackageWithID(const std::string &packageID, KWFlagReply reply) override;
  void removeKextAtPath(const std::string &path, KWFlagReply reply) override;
  void slimBinaryWithPath(const std::string &path, const std::vector<std::string> &archs,
                          KWFlagReply reply) override;
  void removeLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) override;
  void enableLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) override;
  void disableLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) override;
  void removeSMLoginItem(const std::string &bundleID, KWFlagReply reply) override;
  void startStartupItem(const std::string &name, KWFlagReply reply) override;
  void stopStartupItem(const std::string &name, KWFlagReply reply) override;
  void removeGlobalLoginItemForAppWithPath(const std::string &appPath, KWFlagReply reply) override;
  void removeLibraryFromLauchdConf(const std::string &libraryPath, KWFlagReply reply) override;

  // System maintenance.
  void removeASLWithReply(KWFlagReply reply) override;
  void repairPermissionsWithReply(KWRepairReply reply) override;
  void runPeriodicScript(const std::string &scriptName, KWFlagReply reply) override;
  void startSpotlightReindexWithReply(KWFlagReply reply) override;
  void flushDNSWithReply(KWFlagReply reply) override;
  void removeDiagnosticLogsWithReply(KWDiagnosticLogsReply reply) override;

private:
  mutable std::mutex mutex_;
  std::weak_ptr<NS::XPCConnection> xpcConnection_;
};

} // namespace kw
