// The operations that the agent does for its clients: the protocol that every
// connection exports.
//
// A reply block is called before its method returns, at most once unless the
// method says otherwise, and may be null where the method says so. Methods of
// one object are called one at a time, those of different objects at the same
// time. A flag says whether the operation succeeded; its error is nil unless
// the method says otherwise.
#pragma once

#include "Foundation/Error.h"
#include "Foundation/XPCInterface.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kw {

using KWFlagReply = std::function<void(bool success, const std::optional<NS::Error> &error)>;
using KWEchoReply = std::function<void(const std::optional<std::string> &text,
                                       const std::optional<NS::Error> &error)>;
using KWRepairReply =
    std::function<void(bool success, std::int32_t value, const std::optional<std::string> &text)>;
using KWDiagnosticLogsReply = std::function<void(
    const std::optional<std::string> &output, std::int64_t status,
    const std::optional<std::string> &errorOutput, const std::optional<NS::Error> &error)>;
using KWSizeReply = std::function<void(std::int64_t size, const std::optional<NS::Error> &error)>;

class KWPrivilegedOperation : public NS::XPCObject {
public:
  // The protocol as the transport sees it, its methods in this order.
  static std::shared_ptr<const NS::XPCInterface> interface();

  // Ends the agent at once, without a reply.
  virtual void pleaseTerminate() = 0;
  // Replies with the text it got.
  virtual void echo(const std::optional<std::string> &text, KWEchoReply reply) = 0;
  // Whether something stands at the path, a final link followed.
  virtual void fileExistsAtPath(const std::string &path, KWFlagReply reply) = 0;
  // Passes the error of the move.
  virtual void moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                              KWFlagReply reply) = 0;
  // Passes the removal's last error, which may stand beside a success.
  virtual void removeItemAtPath(const std::string &path, KWFlagReply reply) = 0;
  virtual void securelyRemoveItemAtPath(const std::string &path, KWFlagReply reply) = 0;
  // The flag is inverted: true when the item could not be put in the Trash.
  // Passes the error of the move.
  virtual void moveToTrashItemAtPath(const std::string &path, KWFlagReply reply) = 0;
  virtual void truncateFileAtPath(const std::string &path, KWFlagReply reply) = 0;
  virtual void removePackageWithID(const std::string &packageID, KWFlagReply reply) = 0;
  virtual void removeKextAtPath(const std::string &path, KWFlagReply reply) = 0;
  virtual void removeASLWithReply(KWFlagReply reply) = 0;
  virtual void slimBinaryWithPath(const std::string &path, const std::vector<std::string> &archs,
                                  KWFlagReply reply) = 0;
  // The agent's own job list ends the agent without a reply.
  virtual void removeLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) = 0;
  virtual void enableLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) = 0;
  virtual void disableLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) = 0;
  virtual void removeSMLoginItem(const std::string &bundleID, KWFlagReply reply) = 0;
  virtual void startStartupItem(const std::string &name, KWFlagReply reply) = 0;
  virtual void stopStartupItem(const std::string &name, KWFlagReply reply) = 0;
  // Sends its progress to the client while it runs. The reply must not be
  // null; its text is always nil.
  virtual void repairPermissionsWithReply(KWRepairReply reply) = 0;
  virtual void runPeriodicScript(const std::string &scriptName, KWFlagReply reply) = 0;
  virtual void startSpotlightReindexWithReply(KWFlagReply reply) = 0;
  virtual void removeGlobalLoginItemForAppWithPath(const std::string &appPath,
                                                   KWFlagReply reply) = 0;
  // May reply up to three times; the first reply counts.
  virtual void removeLibraryFromLauchdConf(const std::string &libraryPath, KWFlagReply reply) = 0;
  virtual void flushDNSWithReply(KWFlagReply reply) = 0;
  // May reply twice; the first reply counts. Passes the error of the tool that
  // could not be run.
  virtual void removeDiagnosticLogsWithReply(KWDiagnosticLogsReply reply) = 0;
  // Allocated bytes; 0 with an error when the item could not be measured to its
  // end, being cancelled or for want of descriptors. The reply must not be null.
  virtual void sizeOfItemAtPath(const std::string &path, KWSizeReply reply) = 0;
};

} // namespace kw
