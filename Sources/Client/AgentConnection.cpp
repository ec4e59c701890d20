// The agent over the bus: sends each message as a call, and finds the message
// of a reply by the number of its call.
#include "Client/AgentConnection.h"

#include "Client/BusFailure.h"
#include "Protocol/BusNames.h"
#include "Protocol/Identity.h"
#include "Protocol/Linux/BusConnection.h"
#include "Protocol/Linux/BusText.h"
#include "Protocol/Linux/BusValues.h"

#include <algorithm>
#include <deque>
#include <map>
#include <string_view>
#include <utility>

namespace kw {
namespace {

using NS::BusConnection;
using NS::BusError;
using NS::BusMessage;
using Kind = ClientError::Kind;

// A flood of messages on this connection must not keep requests from being
// sent.
constexpr int mostHandledAtOnce = 256;

// The bus counts calls without an answer, which include the requests.
constexpr std::size_t mostCancelsSent = 16;

ClientError errorOfBus(const BusError &error) {
  return {Kind::Unreachable, error.name(), error.what()};
}

[[noreturn]] void refuse(const char *reason) {
  throw ClientError(Kind::BadArgument, "org.freedesktop.DBus.Error.InvalidArgs", reason);
}

// The bus changes invalid text, which would then name another item.
void checkText(const std::string &text, std::size_t &bytes) {
  if ((bytes += text.size()) > kMostArgumentBytes)
    refuse("text this long cannot be sent to the agent");
  if (!NS::isBusText(text))
    refuse("text that is no UTF-8 cannot be sent to the agent");
}

void writeArguments(BusMessage &call, const NS::XPCValues &arguments) {
  std::size_t bytes = 0;
  for (const NS::XPCValue &argument : arguments) {
    if (const auto *text = std::get_if<std::string>(&argument)) {
      checkText(*text, bytes);
      call.write(*text);
    } else {
      const auto &texts = std::get<std::vector<std::string>>(argument);
      for (const std::string &each : texts)
        checkText(each, bytes);
      call.write(texts);
    }
  }
}

class AgentBus final : public AgentConnection {
public:
  AgentBus(const std::string &bus, const ConnectionOptions &options)
      : bus_(bus, BusConnection::Opening::Begin), options_(options) {}

  bool isAccepted() override { return bus_.isAccepted(); }
  void waitUntilAccepted(std::optional<Clock::time_point> until,
                         const std::function<bool()> &goesOn) override;

  void send(Number number, const AgentMessage &message) override;
  void cancel(Number number) override;
  void wait(Receiver &receiver, std::optional<Clock::time_point> until) override;
  void wake() override { waker_.wake(); }

private:
  enum class Purpose { Request, Cancel, OwnerQuestion, Match, Setting };

  // A call that was sent and has no answer yet.
  struct Awaited {
    Purpose purpose = Purpose::Setting;
    Number number = 0; // the request's own, or of the one to cancel
    std::vector<NS::XPCKind> kinds{};
    bool mayEndAgent = false;
  };
  using AwaitedBySerial = std::map<std::uint32_t, Awaited>;
  // A request that may end the agent.
  struct LastRequest {
    bool isAnswered = false; // the bus reported that no reply will come
    bool nameIsLost = false;
  };

  BusMessage makeAgentCall(const char *interface, const std::string &member);
  void sendCall(BusMessage &call, Awaited awaited);
  BusMessage callToBus(const char *member, const std::string &argument);
  void watchAgent();
  void tellSettings();
  void tell(const char *setting);
  void sendCancels();

  bool handleArrived();
  void handle(BusMessage &message);
  void turnAway(const BusMessage &call);
  void handleAnswer(BusMessage &answer);
  void handleCancel(Number number, BusMessage &answer);
  void handleReply(const Awaited &awaited, BusMessage &answer);
  void handleSignal(BusMessage &signal);
  void agentIs(std::string owner);
  void settleLastRequests();

  NS::BusWaker waker_; // destroyed last, since other threads may be in wake()
  BusConnection bus_;
  const ConnectionOptions options_;
  Receiver *receiver_ = nullptr; // set during a wait
  AwaitedBySerial awaited_;
  std::map<Number, LastRequest> lastRequests_;
  std::deque<Number> toCancel_;
  std::size_t cancelsSent_ = 0;
  // The agent's unique name. The connection follows it from the first request
  // that needs it; empty while the name has no owner.
  std::string owner_;
  bool watchesAgent_ = false;
  bool wantsProgress_ = false;
  // The agent that has these settings; another agent must get them again.
  bool endsOnLeaving_ = false;
  bool isSubscribed_ = false;
};

void AgentBus::waitUntilAccepted(std::optional<Clock::time_point> until,
                                 const std::function<bool()> &goesOn) {
  constexpr std::chrono::milliseconds betweenCalls{100};
  while (!goesOn || goesOn()) {
    Clock::time_point now = Clock::now();
    if (until && now >= *until)
      throw ClientError(Kind::DeadlinePassed, "",
                        "the bus has not accepted the connection in the time allowed");
    try {
      if (bus_.waitUntilAccepted(
              std::min(until.value_or(Clock::time_point::max()), now + betweenCalls)))
        return;
    } catch (const BusError &error) {
      throw errorOfBus(error);
    }
  }
  throw ClientError(Kind::Cancelled, "", "the connection was given up");
}

// The steps that need memory come before the sending.
void AgentBus::sendCall(BusMessage &call, Awaited awaited) {
  AwaitedBySerial made;
  made.emplace(0, std::move(awaited));
  auto node = made.extract(made.begin());
  node.key() = bus_.send(call);
  awaited_.insert(std::move(node));
}

BusMessage AgentBus::makeAgentCall(const char *interface, const std::string &member) {
  static const std::string name(kAgentServiceName);
  static const std::string path = objectPathForName(name);
  return bus_.makeCall(name, path, interface, member);
}

void AgentBus::send(Number number, const AgentMessage &message) {
  try {
    BusMessage call = makeAgentCall(kOperationInterface, message.member);
    writeArguments(call, message.arguments);
    wantsProgress_ |= message.isFollowed;
    if (message.mayEndAgent || message.hasProgress || wantsProgress_ ||
        options_.endRequestsOnLeaving)
      watchAgent();
    tellSettings();
    if (message.mayEndAgent)
      lastRequests_.emplace(number, LastRequest{});
    sendCall(call, {Purpose::Request, number, message.replyKinds, message.mayEndAgent});
  } catch (const NS::BusMessageTooLarge &) {
    refuse("arguments this long cannot be sent to the agent");
  } catch (const BusError &error) {
    throw errorOfBus(error);
  }
}

// The bus and the agent take messages in the order of their sending, so these
// settings hold for all later requests.
void AgentBus::tellSettings() {
  if (options_.endRequestsOnLeaving && !endsOnLeaving_) {
    tell(kEndMember);
    endsOnLeaving_ = true;
  }
  if (wantsProgress_ && !isSubscribed_) {
    tell(kSubscribeMember);
    isSubscribed_ = true;
  }
}

// An agent too old for it answers with an error, which changes nothing.
void AgentBus::tell(const char *setting) {
  BusMessage call = makeAgentCall(kControlInterface, setting);
  call.write(true);
  sendCall(call, {});
}

// The bus's answers come before anything that the agent sends from then on.
void AgentBus::watchAgent() {
  if (watchesAgent_)
    return;
  std::string name(kAgentServiceName);
  BusMessage match = callToBus(
      "AddMatch", "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                  "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
                      name + "'");
  sendCall(match, {Purpose::Match});
  BusMessage question = callToBus("GetNameOwner", name);
  sendCall(question, {Purpose::OwnerQuestion});
  watchesAgent_ = true;
}

BusMessage AgentBus::callToBus(const char *member, const std::string &argument) {
  BusMessage call = bus_.makeCall(BusConnection::busName, BusConnection::busPath,
                                  BusConnection::busInterface, member);
  call.write(argument);
  return call;
}

void AgentBus::cancel(Number number) {
  try {
    toCancel_.push_back(number);
    sendCancels();
  } catch (const BusError &error) {
    throw errorOfBus(error);
  }
}

// A request without a call has been answered.
void AgentBus::sendCancels() {
  for (; !toCancel_.empty() && cancelsSent_ < mostCancelsSent; toCancel_.pop_front()) {
    Number number = toCancel_.front();
    auto found = std::find_if(awaited_.begin(), awaited_.end(), [number](const auto &each) {
      return each.second.purpose == Purpose::Request && each.second.number == number;
    });
    if (found == awaited_.end())
      continue;
    BusMessage call = makeAgentCall(kControlInterface, kCancelMember);
    call.write(found->first);
    sendCall(call, {Purpose::Cancel, number});
    ++cancelsSent_;
  }
}

// Also returns when the bus accepts the connection, since the bus sends it a signal
// then.
void AgentBus::wait(Receiver &receiver, std::optional<Clock::time_point> until) {
  struct Reset {
    Receiver *&receiver;
    ~Reset() { receiver = nullptr; }
  } reset{receiver_};
  receiver_ = &receiver;
  try {
    if (handleArrived())
      return;
    bus_.wait(waker_, until);
    handleArrived();
  } catch (const BusError &error) {
    throw errorOfBus(error);
  }
}

bool AgentBus::handleArrived() {
  int handled = 0;
  for (; handled < mostHandledAtOnce; ++handled) {
    BusMessage message = bus_.next();
    if (!message)
      break;
    handle(message);
  }
  return handled > 0;
}

void AgentBus::handle(BusMessage &message) {
  switch (message.kind()) {
  case BusMessage::Kind::Reply:
  case BusMessage::Kind::Failure:
    return handleAnswer(message);
  case BusMessage::Kind::Signal:
    return handleSignal(message);
  case BusMessage::Kind::Call:
    break;
  }
  if (message.expectsReply())
    turnAway(message);
}

// Answers a stranger's call. The outcome does not concern the requests.
void AgentBus::turnAway(const BusMessage &call) {
  try {
    BusMessage answer =
        call.makeFailure("org.freedesktop.DBus.Error.UnknownMethod", "a client serves no requests");
    bus_.send(answer);
  } catch (const BusError &) { // next() throws when the connection is lost
  }
}

void AgentBus::handleAnswer(BusMessage &answer) {
  auto node = awaited_.extract(answer.replySerial());
  if (!node)
    return;
  const Awaited &awaited = node.mapped();
  bool hasFailed = answer.kind() == BusMessage::Kind::Failure;
  switch (awaited.purpose) {
  case Purpose::Request:
    return handleReply(awaited, answer);
  case Purpose::Cancel:
    --cancelsSent_;
    handleCancel(awaited.number, answer);
    return sendCancels();
  case Purpose::Match: // without it the agent's end would stay unseen
    if (hasFailed)
      throw BusError(std::string(answer.errorName()), "the bus does not tell who owns a name");
    return;
  case Purpose::OwnerQuestion: // a failure means that the name has no owner
    if (!hasFailed)
      agentIs(std::string(answer.readText()));
    return;
  case Purpose::Setting:
    return;
  }
}

// False means that the request has been answered.
void AgentBus::handleCancel(Number number, BusMessage &answer) {
  if (answer.kind() == BusMessage::Kind::Failure || answer.signature() != "b")
    receiver_->couldNotCancel(number);
  else if (answer.readBool())
    receiver_->isBeingCancelled(number);
}

void AgentBus::handleReply(const Awaited &awaited, BusMessage &answer) {
  bool hasFailed = answer.kind() == BusMessage::Kind::Failure;
  if (awaited.mayEndAgent) {
    auto last = lastRequests_.find(awaited.number);
    if (hasFailed ? meansInterrupted(answer.errorName()) : awaited.kinds.empty()) {
      last->second.isAnswered = true;
      return settleLastRequests();
    }
    lastRequests_.erase(last);
  }
  if (hasFailed) {
    bool hasText = answer.signature().starts_with("s");
    return receiver_->failed(
        awaited.number,
        errorOfReply(answer.errorName(), hasText ? std::string(answer.readText()) : std::string()));
  }
  NS::XPCValues values;
  try {
    values = NS::readValues(answer, awaited.kinds);
  } catch (const BusError &error) {
    ClientError misread(Kind::BadReply, error.name(), "the agent's reply is not understood");
    return receiver_->failed(awaited.number, misread);
  }
  receiver_->received(awaited.number, std::move(values));
}

// Any connection of the bus may send a signal here. Only those of the bus and
// of the owner of the agent's name count.
void AgentBus::handleSignal(BusMessage &signal) {
  bool isOfAgent = !owner_.empty() && signal.sender() == owner_;
  std::string_view interface = signal.interface(), member = signal.member();
  try {
    if (interface == BusConnection::busInterface && member == "NameOwnerChanged" &&
        signal.sender() == BusConnection::busName) {
      if (signal.readText() != kAgentServiceName)
        return;
      static_cast<void>(signal.readText()); // the former owner
      agentIs(std::string(signal.readText()));
    } else if (isOfAgent && interface == kOutputInterface && member == kOutputMember) {
      receiver_->progressed(std::string(signal.readText()));
    } else if (isOfAgent && interface == kControlInterface && member == kProgressMember) {
      auto found = awaited_.find(signal.readUInt32());
      if (found == awaited_.end() || found->second.purpose != Purpose::Request)
        return;
      RequestProgress progress;
      progress.items = signal.readUInt64();
      progress.bytes = signal.readUInt64();
      progress.path = std::string(signal.readText());
      receiver_->advanced(found->second.number, progress);
    }
  } catch (const BusError &) { // a malformed message; the connection stays
  }
}

// Another agent knows none of the settings of the one before it, and a request
// for that one may have started it.
void AgentBus::agentIs(std::string owner) {
  if (!owner_.empty() && owner != owner_) {
    endsOnLeaving_ = isSubscribed_ = false;
    for (auto &[number, request] : lastRequests_)
      request.nameIsLost = true;
    settleLastRequests();
  }
  owner_ = std::move(owner);
  if (!owner_.empty())
    tellSettings();
}

void AgentBus::settleLastRequests() {
  for (auto it = lastRequests_.begin(); it != lastRequests_.end();) {
    Number number = it->first;
    bool isOver = it->second.isAnswered && it->second.nameIsLost;
    it = isOver ? lastRequests_.erase(it) : std::next(it);
    if (isOver)
      receiver_->received(number, {});
  }
}

} // namespace

std::unique_ptr<AgentConnection> AgentConnection::open(const std::string &bus,
                                                       const ConnectionOptions &options) {
  try {
    return std::make_unique<AgentBus>(bus, options);
  } catch (const BusError &error) {
    throw errorOfBus(error);
  }
}

} // namespace kw
