// The operations that the agent does for its clients: the protocol that every
// connection exports.
//
// A method calls its reply block before it returns, at most once unless its
// comment says otherwise. A reply block may be null unless its comment forbids
// it. The transport calls methods of one object one at a time, those of
// different objects at the same time. All methods block until their work is
// done.
//
// A flag is true when the operation succeeded. The error beside it is nil
// unless the comment names one. Paths reach the file system unchanged.
#pragma once

#include "Foundation/Base/Error.h"
#include "Protocol/XPCInterface.h"

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
  // The description for the transport, with the methods in this order.
  static std::shared_ptr<const NS::XPCInterface> interface();

  // Ends the agent at once with status 0, without a reply. Requests of other
  // clients that are under way stay unanswered.
  virtual void pleaseTerminate() = 0;
  // Replies with the same text, which shows that the agent lives.
  virtual void echo(const std::optional<std::string> &text, KWEchoReply reply) = 0;
  // Replies whether an item exists at the path. A final link is followed, so a
  // dangling one does not exist.
  virtual void fileExistsAtPath(const std::string &path, KWFlagReply reply) = 0;
  // Moves the item to its full new path. Unlocks it and makes missing folders
  // first. Replies true without a move when the destination is the folder that
  // holds the item. Passes the error of the move.
  virtual void moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                              KWFlagReply reply) = 0;
  // Removes the item with all that it holds; a missing item counts as removed.
  // Passes the removal's last error, which may accompany a success: the first
  // attempt's, after which the agent unlocked the item.
  virtual void removeItemAtPath(const std::string &path, KWFlagReply reply) = 0;
  // Overwrites the data of the item's files once, then removes the item. Passes
  // an error only when the client cancelled the request.
  virtual void securelyRemoveItemAtPath(const std::string &path, KWFlagReply reply) = 0;
  // Moves the item to the Trash of the agent's user or of the volume. The flag
  // is inverted: true when the item could not be moved there. Passes the error
  // of the move.
  virtual void moveToTrashItemAtPath(const std::string &path, KWFlagReply reply) = 0;
  // Cuts an existing file to length zero.
  virtual void truncateFileAtPath(const std::string &path, KWFlagReply reply) = 0;
  // Forgets the receipt of the package with pkgutil and leaves its files.
  // Replies true when the tool ends with status 0.
  virtual void removePackageWithID(const std::string &packageID, KWFlagReply reply) = 0;
  // Unloads the kernel extension by its bundle identifier, as far as possible,
  // and deletes its bundle. Replies whether the bundle is gone; false for a
  // path without a bundle identifier.
  virtual void removeKextAtPath(const std::string &path, KWFlagReply reply) = 0;
  // Empties the system log store: stops the two jobs that write to it, removes
  // the contents of its folder, and starts both. Replies false when a job could
  // not be stopped or started.
  virtual void removeASLWithReply(KWFlagReply reply) = 0;
  // Replaces a universal binary by the copy that ditto makes with these options
  // of its own ("--arch", "x86_64"). Replies true also for a missing binary.
  virtual void slimBinaryWithPath(const std::string &path, const std::vector<std::string> &archs,
                                  KWFlagReply reply) = 0;
  // Unloads the launchd job of this list and deletes the list and the job's
  // privileged tool. For the agent's own list the agent removes its own files
  // and ends without a reply.
  virtual void removeLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) = 0;
  // Loads the launchd job of this list and enables it for later starts. Replies
  // true at once when it is loaded.
  virtual void enableLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) = 0;
  // Unloads the launchd job of this list, disables it for later starts and
  // stops it. Replies true at once when it is not loaded.
  virtual void disableLaunchdAgentAtPath(const std::string &plistPath, KWFlagReply reply) = 0;
  // Takes a login item out of launchd's overrides database by the identifier of
  // its bundle. Replies true also without a readable database.
  virtual void removeSMLoginItem(const std::string &bundleID, KWFlagReply reply) = 0;
  // Starts a startup item with SystemStarter. Always replies true.
  virtual void startStartupItem(const std::string &name, KWFlagReply reply) = 0;
  // Stops a startup item with SystemStarter. Always replies true.
  virtual void stopStartupItem(const std::string &name, KWFlagReply reply) = 0;
  // Repairs the permissions of the system's packages, and sends the tool's
  // output to the client's progress receiver while the tool runs. Replies true,
  // the tool's process identifier, and a nil text. The reply must not be null.
  virtual void repairPermissionsWithReply(KWRepairReply reply) = 0;
  // Runs periodic with this name as its one argument. Always replies true.
  virtual void runPeriodicScript(const std::string &scriptName, KWFlagReply reply) = 0;
  // Erases the search index with mdutil, so that the system builds it anew.
  // Always replies true.
  virtual void startSpotlightReindexWithReply(KWFlagReply reply) = 0;
  // Removes every login item of all users that resolves to the application, or
  // that has the whole path as its name when it does not resolve. Replies
  // whether the last removal succeeded; true when no item matches.
  virtual void removeGlobalLoginItemForAppWithPath(const std::string &appPath,
                                                   KWFlagReply reply) = 0;
  // Takes the library out of the DYLD_INSERT_LIBRARIES lines of
  // "/etc/launchd.conf", and keeps the former content in a backup. Replies
  // whether the file was written. May reply up to three times; the first reply
  // counts. "Lauchd" (sic) is the contract's.
  virtual void removeLibraryFromLauchdConf(const std::string &libraryPath, KWFlagReply reply) = 0;
  // Flushes the caches of the name service with two tools, which both always
  // run. Replies whether both ended with status 0.
  virtual void flushDNSWithReply(KWFlagReply reply) = 0;
  // Erases the unified log and replies with the tool's output, status and error
  // output. When the tool cannot be run, replies -1 and its error, and may
  // reply twice; the first reply counts.
  virtual void removeDiagnosticLogsWithReply(KWDiagnosticLogsReply reply) = 0;
  // Replies with the bytes that the item and all that it holds occupy on disk.
  // Replies 0 with an error when the measurement was cancelled or ran out of
  // descriptors or memory. The reply must not be null.
  virtual void sizeOfItemAtPath(const std::string &path, KWSizeReply reply) = 0;
};

} // namespace kw
