// Encodes each operation as one message of the bus, and decodes its reply. Most
// calls are made from the description of the interface.
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

// The form of the call only gives the type of its reply.
template <typename Reply, typename... Parameters>
Request<Reply> start(Request<Reply> (Client::* /*form*/)(Parameters...),
                     const std::shared_ptr<RequestEngine> &engine, AgentMessage message,
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
  first->waitUntilAccepted(deadlineAfter(options.connectTimeLimit), options.keepConnecting);
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

// The calls that differ from all others; make-operations.py names them too.

Request<TerminationReply> Client::pleaseTerminateAsync(const RequestOptions &options) {
  return start(&Client::pleaseTerminateAsync, engine_,
               {.member = "PleaseTerminate", .mayEndAgent = true}, options);
}

Request<FlagReply> Client::securelyRemoveItemAtPathAsync(const std::string &path,
                                                         const RequestOptions &options) {
  return start(
      &Client::securelyRemoveItemAtPathAsync, engine_,
      {.member = "SecurelyRemoveItemAtPath", .arguments = {path}, .stopsWithoutReason = true},
      options);
}

Request<FlagReply> Client::moveToTrashItemAtPathAsync(const std::string &path,
                                                      const RequestOptions &options) {
  return start(&Client::moveToTrashItemAtPathAsync, engine_,
               {.member = "MoveToTrashItemAtPath", .arguments = {path}, .flagWhenDone = false},
               options, decodeTrash);
}

Request<JobRemovalReply> Client::removeLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                               const RequestOptions &options) {
  return start(&Client::removeLaunchdAgentAtPathAsync, engine_,
               {.member = "RemoveLaunchdAgentAtPath",
                .arguments = {plistPath},
                .mayEndAgent = plistPath == kAgentJobPlistPath},
               options);
}

Request<RepairReply> Client::repairPermissionsAsync(const Progress &progress,
                                                    const RequestOptions &options) {
  return start(&Client::repairPermissionsAsync, engine_,
               {.member = "RepairPermissions", .hasProgress = true}, options,
               Coding<RepairReply>::decode, progress);
}

RepairReply Client::repairPermissions(const Progress &progress, const RequestOptions &options) {
  return repairPermissionsAsync(progress, options).get();
}

#include "Protocol/ClientCalls.inc"

} // namespace kw
