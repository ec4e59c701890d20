// The typed client of the agent: one blocking call for each operation that the
// agent offers.
//
// A client belongs to one thread at a time; use one per thread. Requests of
// one client are done one after the other. No call has a time limit, since an
// operation may take as long as a disk is large. Paths must be absolute: the
// agent has a working folder of its own. Text must be UTF-8, as everything on
// the bus.
#pragma once

#include "Client/ClientError.h"
#include "Foundation/Error.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kw {

class AgentConnection;

// Whether the agent did what it was asked. It says why not in the error of the
// moves, the Trash and the removal only; a removal that succeeded at the
// second attempt carries the error of the first beside its success.
struct FlagReply {
  bool success = false;
  std::optional<NS::Error> error;
};

struct EchoReply {
  std::string text;
  std::optional<NS::Error> error;
};

struct RepairReply {
  bool success = false;
  std::int32_t value = 0;
  std::string text;
};

struct DiagnosticLogsReply {
  std::string output;
  std::int64_t status = 0; // of the tool that erases the log
  std::string errorOutput;
  std::optional<NS::Error> error; // when that tool could not be run
};

struct SizeReply {
  std::int64_t size = 0; // allocated bytes
  std::optional<NS::Error> error;
};

class Client {
public:
  // Called with a chunk of a running tool's output, on the calling thread.
  using Progress = std::function<void(const std::string &output)>;

  virtual ~Client() = default;

  // Connects to a bus: "system", "session" or a bus address. The agent itself
  // is started by the first request. Throws ClientError.
  static std::unique_ptr<Client> connect(const std::string &bus = "system");
  // Over a connection of the caller's making.
  static std::unique_ptr<Client> overConnection(std::unique_ptr<AgentConnection> connection);

  // Every call below blocks until the reply and throws ClientError when there
  // is none.

  // Ends the agent and waits until its name has no owner. An agent that is not
  // running is started for it.
  virtual void pleaseTerminate() = 0;
  // The text comes back as it was sent.
  virtual EchoReply echo(const std::string &text) = 0;
  // The flag is whether something stands at the path, a final link followed.
  virtual FlagReply fileExistsAtPath(const std::string &path) = 0;

  virtual FlagReply moveItemAtPath(const std::string &srcPath, const std::string &dstPath) = 0;
  virtual FlagReply removeItemAtPath(const std::string &path) = 0;
  virtual FlagReply securelyRemoveItemAtPath(const std::string &path) = 0;
  // Success means that the item is in the Trash. (On the bus the flag has the
  // opposite sense; it is turned here.)
  virtual FlagReply moveToTrashItemAtPath(const std::string &path) = 0;
  virtual FlagReply truncateFileAtPath(const std::string &path) = 0;
  virtual SizeReply sizeOfItemAtPath(const std::string &path) = 0;

  virtual FlagReply removePackageWithID(const std::string &packageID) = 0;
  virtual FlagReply removeKextAtPath(const std::string &path) = 0;
  virtual FlagReply slimBinaryWithPath(const std::string &path,
                                       const std::vector<std::string> &archs) = 0;

  // With the agent's own job list the agent ends without a reply, which is a
  // ClientError of kind Unreachable.
  virtual FlagReply removeLaunchdAgentAtPath(const std::string &plistPath) = 0;
  virtual FlagReply enableLaunchdAgentAtPath(const std::string &plistPath) = 0;
  virtual FlagReply disableLaunchdAgentAtPath(const std::string &plistPath) = 0;
  virtual FlagReply removeSMLoginItem(const std::string &bundleID) = 0;
  virtual FlagReply removeGlobalLoginItemForAppWithPath(const std::string &appPath) = 0;
  virtual FlagReply startStartupItem(const std::string &name) = 0;
  virtual FlagReply stopStartupItem(const std::string &name) = 0;
  virtual FlagReply removeLibraryFromLauchdConf(const std::string &libraryPath) = 0;

  virtual FlagReply removeASL() = 0;
  virtual RepairReply repairPermissions(const Progress &progress) = 0;
  virtual FlagReply runPeriodicScript(const std::string &scriptName) = 0;
  virtual FlagReply startSpotlightReindex() = 0;
  virtual FlagReply flushDNS() = 0;
  virtual DiagnosticLogsReply removeDiagnosticLogs() = 0;
};

} // namespace kw
