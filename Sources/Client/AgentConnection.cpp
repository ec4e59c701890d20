// The agent over the bus.
#include "Client/AgentConnection.h"

#include "Client/MessageCoding.h"
#include "Foundation/Identity.h"
#include "Foundation/SaturatedTime.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <map>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <string_view>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kw {
namespace {

constexpr const char *agentPath = "/org/keepwell/pro/agent";
constexpr const char *operationInterface = "org.keepwell.KWPrivilegedOperation";
constexpr const char *progressInterface = "org.keepwell.KWPrivilegedOperationProgress";
constexpr const char *busName = "org.freedesktop.DBus";
constexpr const char *busPath = "/org/freedesktop/DBus";

constexpr std::uint64_t noTimeLimit = std::numeric_limits<std::uint64_t>::max();

// Somebody who floods this connection must not keep requests from being sent.
constexpr int mostHandledAtOnce = 256;

constexpr std::string_view busErrorPrefix = "org.freedesktop.DBus.Error.";

std::string_view shortName(std::string_view name) {
  return name.starts_with(busErrorPrefix) ? name.substr(busErrorPrefix.size()) : name;
}

template <std::size_t size>
bool isAmong(std::string_view name, const std::array<std::string_view, size> &names) {
  return std::find(names.begin(), names.end(), shortName(name)) != names.end();
}

// The agent went away with the request; the bus itself may have.
bool meansInterrupted(std::string_view name) {
  return isAmong(name, std::array<std::string_view, 2>{"NoReply", "Disconnected"});
}

// There is nobody to deliver the request to, or it may not be delivered.
bool meansUnreachable(std::string_view name) {
  constexpr std::array<std::string_view, 6> names{"AccessDenied", "NameHasNoOwner", "NoNetwork",
                                                  "NoServer",     "ServiceUnknown", "TimedOut"};
  return isAmong(name, names) || shortName(name).starts_with("Spawn.") ||
         name.starts_with("System.Error.");
}

// Turned away at the door; any other error may have come in mid-work.
bool meansUntouched(std::string_view name) {
  constexpr std::array<std::string_view, 7> names{
      "InvalidArgs",   "LimitsExceeded", "NotSupported",    "UnknownInterface",
      "UnknownMethod", "UnknownObject",  "InvalidSignature"};
  return isAmong(name, names);
}

ClientError errorOfReply(const sdbus::Error &error) {
  using Kind = ClientError::Kind;
  const std::string &name = error.getName();
  if (meansInterrupted(name))
    return {Kind::Interrupted, name, error.getMessage()};
  if (meansUnreachable(name))
    return {Kind::Unreachable, name, error.getMessage()};
  return {Kind::Refused, name, error.getMessage(),
          meansUntouched(name) ? ClientError::Effect::None : ClientError::Effect::Unknown};
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

class Wakener {
public:
  Wakener() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0)
      throw ClientError(ClientError::Kind::Unreachable, "", "no descriptor is left for the bus");
  }
  ~Wakener() { ::close(descriptor_); }
  Wakener(const Wakener &) = delete;
  Wakener &operator=(const Wakener &) = delete;

  // It fails only when the counter is full, and then the reader is awake.
  void wake() {
    const std::uint64_t one = 1;
    static_cast<void>(!::write(descriptor_, &one, sizeof one));
  }
  void clear() {
    std::uint64_t count = 0;
    static_cast<void>(!::read(descriptor_, &count, sizeof count));
  }
  int descriptor() const { return descriptor_; }

private:
  const int descriptor_;
};

class BusConnection final : public AgentConnection {
public:
  explicit BusConnection(const std::string &bus)
      : connection_(openBus(bus)),
        agent_(sdbus::createProxy(*connection_, std::string(kAgentServiceName), agentPath)) {}

  void send(Number number, const AgentMessage &message) override;
  void wait(Receiver &receiver, std::optional<Clock::time_point> until) override;
  void cancel(Number number) override { notCancelled_.push_back(number); }
  void wake() override { wakener_.wake(); }

private:
  // A request of which the agent may end.
  struct LastRequest {
    bool isAnswered = false; // by nobody: the bus says that no reply will come
    bool nameIsLost = false;
  };

  bool handleArrived();
  void waitForEvents(std::optional<Clock::time_point> until);
  void watchAgent();
  void ownerChanged(sdbus::Message &signal);
  void receiveNewOutput(sdbus::Signal &signal);
  void answered(Number number, const std::vector<NS::XPCKind> &kinds, sdbus::MethodReply &reply,
                const sdbus::Error *error);
  void settleLastRequests();

  Wakener wakener_; // goes last: others may be waking
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> agent_;
  Receiver *receiver_ = nullptr; // during a wait
  // The agent's unique name, followed from the first request on that wants to
  // know; empty while there is none.
  std::string owner_;
  bool watchesAgent_ = false;
  std::map<Number, LastRequest> lastRequests_;
  std::vector<Number> notCancelled_;
};

void BusConnection::send(Number number, const AgentMessage &message) {
  try {
    if (message.mayEndAgent || message.hasProgress)
      watchAgent();
    sdbus::MethodCall request = agent_->createMethodCall(operationInterface, message.member);
    appendArguments(request, message.arguments);
    agent_->callMethod(
        request,
        [this, number, kinds = message.replyKinds](sdbus::MethodReply &reply,
                                                   const sdbus::Error *error) {
          answered(number, kinds, reply, error);
        },
        noTimeLimit);
    if (message.mayEndAgent)
      lastRequests_.emplace(number, LastRequest{});
  } catch (const sdbus::Error &error) {
    throw errorOfBus(error);
  }
}

void BusConnection::answered(Number number, const std::vector<NS::XPCKind> &kinds,
                             sdbus::MethodReply &reply, const sdbus::Error *error) {
  auto last = lastRequests_.find(number);
  const bool mayEndAgent = last != lastRequests_.end();
  if (mayEndAgent && (error ? meansInterrupted(error->getName()) : kinds.empty())) {
    last->second.isAnswered = true;
    settleLastRequests();
    return;
  }
  lastRequests_.erase(number);
  if (error)
    return receiver_->failed(number, errorOfReply(*error));
  try {
    receiver_->received(number, readReply(reply, kinds));
  } catch (const ClientError &misread) {
    receiver_->failed(number, misread);
  }
}

void BusConnection::settleLastRequests() {
  for (auto it = lastRequests_.begin(); it != lastRequests_.end();) {
    Number number = it->first;
    const bool isOver = it->second.isAnswered && it->second.nameIsLost;
    it = isOver ? lastRequests_.erase(it) : std::next(it);
    if (isOver)
      receiver_->received(number, {});
  }
}

// Anybody on the bus may send a signal here; the owner of the name alone is
// believed.
void BusConnection::watchAgent() {
  if (watchesAgent_)
    return;
  connection_->addMatch(
      "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
      "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
          std::string(kAgentServiceName) + "'",
      [this](sdbus::Message &signal) { ownerChanged(signal); }, sdbus::floating_slot);
  agent_->registerSignalHandler(progressInterface, "ReceiveNewOutput",
                                [this](sdbus::Signal &signal) { receiveNewOutput(signal); });
  agent_->finishRegistration();
  try {
    sdbus::createProxy(*connection_, busName, busPath)
        ->callMethod("GetNameOwner")
        .onInterface(busName)
        .withArguments(std::string(kAgentServiceName))
        .storeResultsTo(owner_);
  } catch (const sdbus::Error &error) {
    if (shortName(error.getName()) != "NameHasNoOwner")
      throw;
  }
  watchesAgent_ = true;
}

void BusConnection::ownerChanged(sdbus::Message &signal) {
  std::string name;
  std::string oldOwner;
  signal >> name >> oldOwner >> owner_;
  if (!owner_.empty() || !receiver_)
    return;
  for (auto &[number, request] : lastRequests_)
    request.nameIsLost = true;
  settleLastRequests();
}

void BusConnection::receiveNewOutput(sdbus::Signal &signal) {
  if (!receiver_ || signal.getSender() != owner_)
    return;
  std::string output;
  try {
    signal >> output;
  } catch (const sdbus::Error &) {
    return; // not as agreed, and no reason to lose the connection
  }
  receiver_->progressed(output);
}

void BusConnection::wait(Receiver &receiver, std::optional<Clock::time_point> until) {
  struct Reset {
    Receiver *&receiver;
    ~Reset() { receiver = nullptr; }
  } reset{receiver_};
  receiver_ = &receiver;
  for (Number number : std::exchange(notCancelled_, {})) {
    receiver.couldNotCancel(number);
    until = Clock::time_point::min();
  }
  try {
    if (handleArrived())
      return;
    waitForEvents(until);
    handleArrived();
  } catch (const sdbus::Error &error) {
    throw errorOfBus(error);
  }
}

bool BusConnection::handleArrived() {
  int handled = 0;
  while (handled < mostHandledAtOnce && connection_->processPendingRequest())
    ++handled;
  return handled > 0;
}

// Milliseconds for poll, rounded up so that nobody spins before the time.
int pollTime(std::optional<AgentConnection::Clock::time_point> until) {
  using std::chrono::milliseconds;
  if (!until)
    return -1;
  auto left = NS::saturatedDifference(*until, AgentConnection::Clock::now());
  auto whole = std::chrono::floor<milliseconds>(left).count() + 1;
  return static_cast<int>(std::clamp<std::int64_t>(whole, 0, std::numeric_limits<int>::max()));
}

void BusConnection::waitForEvents(std::optional<Clock::time_point> until) {
  const auto data = connection_->getEventLoopPollData();
  std::array<pollfd, 2> waiting{pollfd{data.fd, data.events, 0},
                                pollfd{wakener_.descriptor(), POLLIN, 0}};
  int time = pollTime(until);
  int busTime = data.getPollTimeout();
  if (time < 0 || (busTime >= 0 && busTime < time))
    time = busTime;
  if (::poll(waiting.data(), waiting.size(), time) < 0 && errno != EINTR)
    throw ClientError(ClientError::Kind::Unreachable, "", "waiting for the bus failed");
  if (waiting[1].revents != 0)
    wakener_.clear();
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
