// Encodes each operation as one message of the bus, and decodes its reply.
#include "Client/Client.h"

#include "Client/ClientMaker.h"
#include "Client/RequestState.h"
#include "Protocol/Identity.h"

#include <utility>

namespace kw {
namespace {

using NS::XPCKind;
using NS::XPCValues;

std::optional<NS::Error> errorIn(XPCValues &values, std::size_t index) {
  if (auto *error = std::get_if<NS::Error>(&values[index]))
    return std::move(*error);
  return std::nullopt;
}

// The bus sends a nil text as an empty one.
std::optional<std::string> textIn(XPCValues &values, std::size_t index) {
  auto &text = std::get<std::string>(values[index]);
  if (text.empty())
    return std::nullopt;
  return std::move(text);
}

Outcome outcomeOf(bool flag) {
  return flag ? Outcome::Done : Outcome::NotDone;
}

// The kinds of the values of each reply, and their decoding.
template <typename Reply> struct Coding;

template <> struct Coding<FlagReply> {
  static std::vector<XPCKind> kinds() { return {XPCKind::Flag, XPCKind::Error}; }
  static FlagReply decode(XPCValues values) {
    return {outcomeOf(std::get<bool>(values[0])), errorIn(values, 1)};
  }
};

template <> struct Coding<RemovalReply> {
  static std::vector<XPCKind> kinds() { return Coding<FlagReply>::kinds(); }
  static RemovalReply decode(XPCValues values) {
    if (std::get<bool>(values[0]))
      return {Outcome::Done, std::nullopt, errorIn(values, 1)};
    return {Outcome::NotDone, errorIn(values, 1), std::nullopt};
  }
};

template <> struct Coding<AttemptReply> {
  static std::vector<XPCKind> kinds() { return Coding<FlagReply>::kinds(); }
  static AttemptReply decode(const XPCValues &values) {
    return {std::get<bool>(values[0]) ? Attempt::Made : Attempt::NotMade};
  }
};

template <> struct Coding<ExistenceReply> {
  static std::vector<XPCKind> kinds() { return Coding<FlagReply>::kinds(); }
  static ExistenceReply decode(const XPCValues &values) {
    return {std::get<bool>(values[0]) ? Existence::Exists : Existence::Missing};
  }
};

template <> struct Coding<JobRemovalReply> {
  static std::vector<XPCKind> kinds() { return Coding<FlagReply>::kinds(); }
  static JobRemovalReply decode(const XPCValues &values) {
    if (values.empty())
      return {JobRemoval::AgentRemoved};
    return {std::get<bool>(values[0]) ? JobRemoval::Removed : JobRemoval::NotRemoved};
  }
};

template <> struct Coding<EchoReply> {
  static std::vector<XPCKind> kinds() { return {XPCKind::String, XPCKind::Error}; }
  static EchoReply decode(XPCValues values) {
    return {std::move(std::get<std::string>(values[0]))};
  }
};

// The bus has a signed size, the agent measures an unsigned one.
template <> struct Coding<SizeReply> {
  static std::vector<XPCKind> kinds() { return {XPCKind::Int64, XPCKind::Error}; }
  static SizeReply decode(XPCValues values) {
    return {static_cast<std::uint64_t>(std::get<std::int64_t>(values[0])), errorIn(values, 1)};
  }
};

template <> struct Coding<RepairReply> {
  static std::vector<XPCKind> kinds() { return {XPCKind::Flag, XPCKind::Int32, XPCKind::String}; }
  static RepairReply decode(const XPCValues &values) {
    return {std::get<bool>(values[0]) ? Attempt::Made : Attempt::NotMade,
            std::get<std::int32_t>(values[1])};
  }
};

template <> struct Coding<LogErasureReply> {
  static std::vector<XPCKind> kinds() {
    return {XPCKind::String, XPCKind::Int64, XPCKind::String, XPCKind::Error};
  }
  static LogErasureReply decode(XPCValues values) {
    LogErasureReply reply{textIn(values, 0), textIn(values, 2), std::nullopt, errorIn(values, 3)};
    // With an error there was no tool and so no status.
    if (!reply.error)
      reply.toolStatus = std::get<std::int64_t>(values[1]);
    return reply;
  }
};

template <> struct Coding<TerminationReply> {
  static std::vector<XPCKind> kinds() { return {}; }
  static TerminationReply decode(const XPCValues &) { return {}; }
};

// On the bus the flag says that the item is not in the Trash.
FlagReply decodeTrash(XPCValues values) {
  FlagReply reply = Coding<FlagReply>::decode(std::move(values));
  reply.outcome = reply.isDone() ? Outcome::NotDone : Outcome::Done;
  return reply;
}

template <typename Reply>
Request<Reply> start(const std::shared_ptr<RequestEngine> &engine, AgentMessage message,
                     const RequestOptions &options,
                     typename Request<Reply>::State::Decode decode = Coding<Reply>::decode,
                     Client::Progress output = nullptr) {
  message.replyKinds = Coding<Reply>::kinds();
  message.isFollowed = options.progress != nullptr;
  auto state = std::make_shared<typename Request<Reply>::State>(
      std::move(message), options, std::move(decode), engine, std::move(output));
  engine->start(state);
  return RequestMaker::make<Reply>(std::move(state));
}

} // namespace

std::unique_ptr<Client> ClientMaker::make(RequestEngine::Connector connector,
                                          const ClientOptions &options) {
  auto first = connector();
  auto engine = std::make_shared<RequestEngine>(std::move(connector), std::move(first),
                                                options.callbackFailed);
  engine->run();
  return std::unique_ptr<Client>(new Client(std::move(engine)));
}

std::unique_ptr<Client> Client::connect(const std::string &bus, const ClientOptions &options) {
  return ClientMaker::make(
      [bus, connection = ConnectionOptions{options.endRequestsOnLeaving}] {
        return AgentConnection::open(bus, connection);
      },
      options);
}

Client::Client(std::shared_ptr<RequestEngine> engine) : engine_(std::move(engine)) {}

Client::~Client() {
  engine_->stop();
}

void Client::cancelAll() {
  engine_->cancelAll();
}

Request<TerminationReply> Client::pleaseTerminateAsync(const RequestOptions &options) {
  return start<TerminationReply>(engine_, {.member = "PleaseTerminate", .mayEndAgent = true},
                                 options);
}

Request<EchoReply> Client::echoAsync(const std::string &text, const RequestOptions &options) {
  return start<EchoReply>(engine_, {"Echo", {text}}, options);
}

Request<ExistenceReply> Client::fileExistsAtPathAsync(const std::string &path,
                                                      const RequestOptions &options) {
  return start<ExistenceReply>(engine_, {"FileExistsAtPath", {path}}, options);
}

Request<FlagReply> Client::moveItemAtPathAsync(const std::string &srcPath,
                                               const std::string &dstPath,
                                               const RequestOptions &options) {
  return start<FlagReply>(engine_, {"MoveItemAtPath", {srcPath, dstPath}}, options);
}

Request<RemovalReply> Client::removeItemAtPathAsync(const std::string &path,
                                                    const RequestOptions &options) {
  return start<RemovalReply>(engine_, {"RemoveItemAtPath", {path}}, options);
}

Request<FlagReply> Client::securelyRemoveItemAtPathAsync(const std::string &path,
                                                         const RequestOptions &options) {
  return start<FlagReply>(
      engine_,
      {.member = "SecurelyRemoveItemAtPath", .arguments = {path}, .stopsWithoutReason = true},
      options);
}

Request<FlagReply> Client::moveToTrashItemAtPathAsync(const std::string &path,
                                                      const RequestOptions &options) {
  return start<FlagReply>(
      engine_, {.member = "MoveToTrashItemAtPath", .arguments = {path}, .flagWhenDone = false},
      options, decodeTrash);
}

Request<FlagReply> Client::truncateFileAtPathAsync(const std::string &path,
                                                   const RequestOptions &options) {
  return start<FlagReply>(engine_, {"TruncateFileAtPath", {path}}, options);
}

Request<SizeReply> Client::sizeOfItemAtPathAsync(const std::string &path,
                                                 const RequestOptions &options) {
  return start<SizeReply>(engine_, {"SizeOfItemAtPath", {path}}, options);
}

Request<FlagReply> Client::removePackageWithIDAsync(const std::string &packageID,
                                                    const RequestOptions &options) {
  return start<FlagReply>(engine_, {"RemovePackageWithID", {packageID}}, options);
}

Request<FlagReply> Client::removeKextAtPathAsync(const std::string &path,
                                                 const RequestOptions &options) {
  return start<FlagReply>(engine_, {"RemoveKextAtPath", {path}}, options);
}

Request<FlagReply> Client::slimBinaryWithPathAsync(const std::string &path,
                                                   const std::vector<std::string> &archs,
                                                   const RequestOptions &options) {
  return start<FlagReply>(engine_, {"SlimBinaryWithPath", {path, archs}}, options);
}

Request<JobRemovalReply> Client::removeLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                               const RequestOptions &options) {
  return start<JobRemovalReply>(engine_,
                                {.member = "RemoveLaunchdAgentAtPath",
                                 .arguments = {plistPath},
                                 .mayEndAgent = plistPath == kAgentJobPlistPath},
                                options);
}

Request<FlagReply> Client::enableLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                         const RequestOptions &options) {
  return start<FlagReply>(engine_, {"EnableLaunchdAgentAtPath", {plistPath}}, options);
}

Request<FlagReply> Client::disableLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                          const RequestOptions &options) {
  return start<FlagReply>(engine_, {"DisableLaunchdAgentAtPath", {plistPath}}, options);
}

Request<FlagReply> Client::removeSMLoginItemAsync(const std::string &bundleID,
                                                  const RequestOptions &options) {
  return start<FlagReply>(engine_, {"RemoveSMLoginItem", {bundleID}}, options);
}

Request<FlagReply> Client::removeGlobalLoginItemForAppWithPathAsync(const std::string &appPath,
                                                                    const RequestOptions &options) {
  return start<FlagReply>(engine_, {"RemoveGlobalLoginItemForAppWithPath", {appPath}}, options);
}

Request<AttemptReply> Client::startStartupItemAsync(const std::string &name,
                                                    const RequestOptions &options) {
  return start<AttemptReply>(engine_, {"StartStartupItem", {name}}, options);
}

Request<AttemptReply> Client::stopStartupItemAsync(const std::string &name,
                                                   const RequestOptions &options) {
  return start<AttemptReply>(engine_, {"StopStartupItem", {name}}, options);
}

Request<FlagReply> Client::removeLibraryFromLauchdConfAsync(const std::string &libraryPath,
                                                            const RequestOptions &options) {
  return start<FlagReply>(engine_, {"RemoveLibraryFromLauchdConf", {libraryPath}}, options);
}

Request<FlagReply> Client::removeASLAsync(const RequestOptions &options) {
  return start<FlagReply>(engine_, {"RemoveASL", {}}, options);
}

Request<RepairReply> Client::repairPermissionsAsync(const Progress &progress,
                                                    const RequestOptions &options) {
  return start<RepairReply>(engine_, {.member = "RepairPermissions", .hasProgress = true}, options,
                            Coding<RepairReply>::decode, progress);
}

Request<AttemptReply> Client::runPeriodicScriptAsync(const std::string &scriptName,
                                                     const RequestOptions &options) {
  return start<AttemptReply>(engine_, {"RunPeriodicScript", {scriptName}}, options);
}

Request<AttemptReply> Client::startSpotlightReindexAsync(const RequestOptions &options) {
  return start<AttemptReply>(engine_, {"StartSpotlightReindex", {}}, options);
}

Request<FlagReply> Client::flushDNSAsync(const RequestOptions &options) {
  return start<FlagReply>(engine_, {"FlushDNS", {}}, options);
}

Request<LogErasureReply> Client::removeDiagnosticLogsAsync(const RequestOptions &options) {
  return start<LogErasureReply>(engine_, {"RemoveDiagnosticLogs", {}}, options);
}
} // namespace kw
