// The agent over the bus. The caller runs the event loop for as long as its
// reply takes: a thread of the library's own would end the program when the
// bus goes away.
#include "Client/AgentConnection.h"

#include "Client/ClientError.h"
#include "Client/MessageCoding.h"
#include "Foundation/Identity.h"

#include <array>
#include <limits>
#include <optional>
#include <sdbus-c++/sdbus-c++.h>
#include <string_view>

namespace kw {
namespace {

constexpr const char *agentPath = "/org/keepwell/pro/agent";
constexpr const char *operationInterface = "org.keepwell.KWPrivilegedOperation";
constexpr const char *progressInterface = "org.keepwell.KWPrivilegedOperationProgress";
constexpr const char *busName = "org.freedesktop.DBus";
constexpr const char *busPath = "/org/freedesktop/DBus";

constexpr std::uint64_t noTimeLimit = std::numeric_limits<std::uint64_t>::max();

constexpr std::string_view busErrorPrefix = "org.freedesktop.DBus.Error.";

std::string_view shortName(std::string_view name) {
  return name.starts_with(busErrorPrefix) ? name.substr(busErrorPrefix.size()) : name;
}

// Whether the bus says that there is nobody to answer, or that the caller may
// not ask.
bool meansUnreachable(std::string_view name) {
  constexpr std::array names{"AccessDenied", "Disconnected",   "NameHasNoOwner", "NoNetwork",
                             "NoServer",     "ServiceUnknown", "NoReply",        "TimedOut"};
  std::string_view error = shortName(name);
  if (error.starts_with("Spawn.") || name.starts_with("System.Error."))
    return true;
  for (std::string_view candidate : names)
    if (error == candidate)
      return true;
  return false;
}

ClientError errorOfReply(const sdbus::Error &error) {
  ClientError::Kind kind = meansUnreachable(error.getName()) ? ClientError::Kind::Unreachable
                                                             : ClientError::Kind::Refused;
  return ClientError(kind, error.getName(), error.getMessage());
}

ClientError errorOfBus(const sdbus::Error &error) {
  return ClientError(ClientError::Kind::Unreachable, error.getName(), error.getMessage());
}

std::unique_ptr<sdbus::IConnection> openBus(const std::string &bus) {
  if (bus == "system")
    return sdbus::createSystemBusConnection();
  if (bus == "session")
    return sdbus::createSessionBusConnection();
  return sdbus::createSessionBusConnectionWithAddress(bus);
}

class BusConnection final : public AgentConnection {
public:
  explicit BusConnection(const std::string &bus)
      : connection_(openBus(bus)),
        agent_(sdbus::createProxy(*connection_, std::string(kAgentServiceName), agentPath)) {
    agent_->registerSignalHandler(progressInterface, "ReceiveNewOutput",
                                  [this](sdbus::Signal &signal) { receiveNewOutput(signal); });
    agent_->finishRegistration();
  }

  NS::XPCValues call(const std::string &member, const NS::XPCValues &arguments,
                     const ReplyKinds &reply) override {
    sdbus::MethodCall request = agent_->createMethodCall(operationInterface, member);
    appendArguments(request, arguments);
    sdbus::MethodReply received = send(request);
    return readReply(received, reply);
  }

  NS::XPCValues callWithProgress(const std::string &member, const ReplyKinds &reply,
                                 const Chunk &chunk) override {
    struct Reset {
      Chunk &chunk;
      ~Reset() { chunk = nullptr; }
    } reset{chunk_};
    chunk_ = chunk;
    return call(member, {}, reply);
  }

  void callUntilNameIsLost(const std::string &member) override;

private:
  sdbus::MethodReply send(const sdbus::MethodCall &request);
  void waitUntil(const std::function<bool()> &done);
  void watchNameOwner();

  void receiveNewOutput(sdbus::Signal &signal) {
    std::string output;
    signal >> output;
    if (chunk_)
      chunk_(output);
  }

  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> agent_;
  // The bus itself, made when somebody wants to see the name lose its owner.
  std::unique_ptr<sdbus::IProxy> bus_;
  Chunk chunk_;           // for the progress of the request under way
  bool nameLost_ = false; // since the last request that wants to know
};

// Handles what arrives until the condition holds.
void BusConnection::waitUntil(const std::function<bool()> &done) {
  try {
    while (!done())
      connection_->enterEventLoop();
  } catch (const sdbus::Error &error) {
    throw errorOfBus(error);
  }
}

sdbus::MethodReply BusConnection::send(const sdbus::MethodCall &request) {
  std::optional<sdbus::MethodReply> reply;
  std::optional<ClientError> failure;
  auto receive = [&](sdbus::MethodReply &received, const sdbus::Error *error) {
    if (error)
      failure = errorOfReply(*error);
    else
      reply = received;
    connection_->leaveEventLoop();
  };
  sdbus::PendingAsyncCall pending;
  try {
    pending = agent_->callMethod(request, receive, noTimeLimit);
  } catch (const sdbus::Error &error) {
    throw errorOfReply(error);
  }
  try {
    waitUntil([&] { return reply || failure; });
  } catch (...) {
    // A late reply must not be written into a frame that is gone.
    pending.cancel();
    throw;
  }
  if (failure)
    throw *failure;
  return *reply;
}

void BusConnection::watchNameOwner() {
  bus_ = sdbus::createProxy(*connection_, busName, busPath);
  bus_->registerSignalHandler(busName, "NameOwnerChanged", [this](sdbus::Signal &signal) {
    std::string name;
    std::string oldOwner;
    std::string newOwner;
    signal >> name >> oldOwner >> newOwner;
    if (name != kAgentServiceName || !newOwner.empty())
      return;
    nameLost_ = true;
    connection_->leaveEventLoop();
  });
  bus_->finishRegistration();
}

void BusConnection::callUntilNameIsLost(const std::string &member) {
  try {
    if (!bus_)
      watchNameOwner();
  } catch (const sdbus::Error &error) {
    throw errorOfBus(error);
  }
  nameLost_ = false;
  // A reply is asked for, although none will come: the bus then says so when
  // there is no agent to be had.
  try {
    static_cast<void>(call(member, {}, {}));
  } catch (const ClientError &error) {
    if (shortName(error.name()) != "NoReply")
      throw;
  }
  waitUntil([this] { return nameLost_; });
}

} // namespace

std::unique_ptr<AgentConnection> AgentConnection::open(const std::string &bus) {
  try {
    return std::make_unique<BusConnection>(bus);
  } catch (const sdbus::Error &error) {
    throw errorOfBus(error);
  }
}

} // namespace kw
