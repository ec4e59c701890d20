// Each operation as one message of the bus.
#include "Client/Client.h"

#include "Client/AgentConnection.h"
#include <utility>

namespace kw {
namespace {

using NS::XPCKind;

std::optional<NS::Error> errorIn(const NS::XPCValue &value) {
  if (const auto *error = std::get_if<NS::Error>(&value))
    return *error;
  return std::nullopt;
}

class AgentClient final : public Client {
public:
  explicit AgentClient(std::unique_ptr<AgentConnection> connection)
      : connection_(std::move(connection)) {}

  void pleaseTerminate() override { connection_->callUntilNameIsLost("PleaseTerminate"); }

  EchoReply echo(const std::string &text) override {
    NS::XPCValues reply = connection_->call("Echo", {text}, {XPCKind::String, XPCKind::Error});
    return {std::get<std::string>(reply[0]), errorIn(reply[1])};
  }

  FlagReply fileExistsAtPath(const std::string &path) override {
    return flag("FileExistsAtPath", path);
  }
  FlagReply moveItemAtPath(const std::string &srcPath, const std::string &dstPath) override {
    return flag("MoveItemAtPath", srcPath, dstPath);
  }
  FlagReply removeItemAtPath(const std::string &path) override {
    return flag("RemoveItemAtPath", path);
  }
  FlagReply securelyRemoveItemAtPath(const std::string &path) override {
    return flag("SecurelyRemoveItemAtPath", path);
  }
  FlagReply moveToTrashItemAtPath(const std::string &path) override {
    FlagReply reply = flag("MoveToTrashItemAtPath", path);
    reply.success = !reply.success;
    return reply;
  }
  FlagReply truncateFileAtPath(const std::string &path) override {
    return flag("TruncateFileAtPath", path);
  }
  SizeReply sizeOfItemAtPath(const std::string &path) override {
    NS::XPCValues reply =
        connection_->call("SizeOfItemAtPath", {path}, {XPCKind::Int64, XPCKind::Error});
    return {std::get<std::int64_t>(reply[0]), errorIn(reply[1])};
  }

  FlagReply removePackageWithID(const std::string &packageID) override {
    return flag("RemovePackageWithID", packageID);
  }
  FlagReply removeKextAtPath(const std::string &path) override {
    return flag("RemoveKextAtPath", path);
  }
  FlagReply slimBinaryWithPath(const std::string &path,
                               const std::vector<std::string> &archs) override {
    return flag("SlimBinaryWithPath", path, archs);
  }
  FlagReply removeLaunchdAgentAtPath(const std::string &plistPath) override {
    return flag("RemoveLaunchdAgentAtPath", plistPath);
  }
  FlagReply enableLaunchdAgentAtPath(const std::string &plistPath) override {
    return flag("EnableLaunchdAgentAtPath", plistPath);
  }
  FlagReply disableLaunchdAgentAtPath(const std::string &plistPath) override {
    return flag("DisableLaunchdAgentAtPath", plistPath);
  }
  FlagReply removeSMLoginItem(const std::string &bundleID) override {
    return flag("RemoveSMLoginItem", bundleID);
  }
  FlagReply removeGlobalLoginItemForAppWithPath(const std::string &appPath) override {
    return flag("RemoveGlobalLoginItemForAppWithPath", appPath);
  }
  FlagReply startStartupItem(const std::string &name) override {
    return flag("StartStartupItem", name);
  }
  FlagReply stopStartupItem(const std::string &name) override {
    return flag("StopStartupItem", name);
  }
  FlagReply removeLibraryFromLauchdConf(const std::string &libraryPath) override {
    return flag("RemoveLibraryFromLauchdConf", libraryPath);
  }

  FlagReply removeASL() override { return flag("RemoveASL"); }
  RepairReply repairPermissions(const Progress &progress) override {
    NS::XPCValues reply = connection_->callWithProgress(
        "RepairPermissions", {XPCKind::Flag, XPCKind::Int32, XPCKind::String}, progress);
    return {std::get<bool>(reply[0]), std::get<std::int32_t>(reply[1]),
            std::get<std::string>(reply[2])};
  }
  FlagReply runPeriodicScript(const std::string &scriptName) override {
    return flag("RunPeriodicScript", scriptName);
  }
  FlagReply startSpotlightReindex() override { return flag("StartSpotlightReindex"); }
  FlagReply flushDNS() override { return flag("FlushDNS"); }
  DiagnosticLogsReply removeDiagnosticLogs() override {
    NS::XPCValues reply =
        connection_->call("RemoveDiagnosticLogs", {},
                          {XPCKind::String, XPCKind::Int64, XPCKind::String, XPCKind::Error});
    return {std::get<std::string>(reply[0]), std::get<std::int64_t>(reply[1]),
            std::get<std::string>(reply[2]), errorIn(reply[3])};
  }

private:
  template <typename... Arguments>
  FlagReply flag(const std::string &member, const Arguments &...arguments) {
    NS::XPCValues reply =
        connection_->call(member, {arguments...}, {XPCKind::Flag, XPCKind::Error});
    return {std::get<bool>(reply[0]), errorIn(reply[1])};
  }

  std::unique_ptr<AgentConnection> connection_;
};

} // namespace

std::unique_ptr<Client> Client::connect(const std::string &bus) {
  return overConnection(AgentConnection::open(bus));
}

std::unique_ptr<Client> Client::overConnection(std::unique_ptr<AgentConnection> connection) {
  return std::make_unique<AgentClient>(std::move(connection));
}

} // namespace kw
