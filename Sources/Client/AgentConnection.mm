// The agent over macOS's transport, whose threads bring replies and errors; the
// owner of the connection gets them from a queue.
#include "Client/AgentConnection.h"

#include "Client/AgentArrivals.h"
#include "Client/TransportFailure.h"
#include "Foundation/Base/macOS/Retained.h"
#include "Protocol/Identity.h"
#include "Protocol/macOS/XPCRequests.h"
#include "Protocol/macOS/XPCValues.h"

#include <map>
#include <memory>
#include <set>
#include <utility>

namespace kw {
namespace {

using Kind = ClientError::Kind;
using Number = AgentConnection::Number;

std::string textOf(const NS::Error &error) {
  return error.localizedDescription();
}

ClientError clientError(NSError *error) {
  NS::XPCValue value = NS::errorValue(error);
  const auto *held = std::get_if<NS::Error>(&value);
  return held ? errorOfTransport(held->code(), textOf(*held)) : errorOfTransport(0, "");
}

[[noreturn]] void refuse(const char *reason) {
  throw ClientError(Kind::BadArgument, "", reason);
}

class AgentXPC final : public AgentConnection {
public:
  explicit AgentXPC(const ConnectionOptions &options);
  ~AgentXPC() override;
  AgentXPC(const AgentXPC &) = delete;
  AgentXPC &operator=(const AgentXPC &) = delete;

  void send(Number number, const AgentMessage &message) override;
  void cancel(Number number) override;
  void wait(Receiver &receiver, std::optional<Clock::time_point> until) override {
    arrivals_->wait(receiver, until);
  }
  void wake() override { arrivals_->wake(); }

private:
  // Of the owner's thread, which alone runs the arrivals.
  struct Sent {
    NS::Retained<NSProgress *> progress;
    bool mayEndAgent = false;
  };
  using Messages = std::map<Number, Sent>;

  static void settle(Messages &messages, Number number, Receiver &receiver,
                     const ClientError &error);
  static void agentEnded(Messages &messages, Receiver &receiver);
  void watchItsEnd();
  id<KWPrivilegedOperation> agent(Number number);

  const std::shared_ptr<AgentArrivals> arrivals_ = std::make_shared<AgentArrivals>();
  // Arrivals share it: the transport may bring one after this object has gone.
  const std::shared_ptr<Messages> messages_ = std::make_shared<Messages>();
  const ConnectionOptions options_;
  NS::Retained<NSXPCConnection *> connection_;
};

AgentXPC::AgentXPC(const ConnectionOptions &options) : options_(options) {
  @autoreleasepool {
    connection_ = NS::Retained<NSXPCConnection *>::adopting([[NSXPCConnection alloc]
        initWithMachServiceName:NS::platformText(std::string(kAgentServiceName))
                        options:NSXPCConnectionPrivileged]);
    NSXPCConnection *connection = connection_.get();
    [connection
        setRemoteObjectInterface:[NSXPCInterface
                                     interfaceWithProtocol:@protocol(KWPrivilegedOperation)]];
    [connection
        setExportedInterface:[NSXPCInterface
                                 interfaceWithProtocol:@protocol(KWPrivilegedOperationProgress)]];
    [connection
        setExportedObject:NS::progressReceiver([arrivals = arrivals_](const std::string &chunk) {
          arrivals->add([chunk](Receiver &receiver) { receiver.progressed(chunk); });
        })];
    watchItsEnd();
    [connection resume];
  }
}

AgentXPC::~AgentXPC() {
  if (options_.endRequestsOnLeaving)
    for (const auto &[number, sent] : *messages_)
      [sent.progress.get() cancel];
  [connection_.get() invalidate];
}

void AgentXPC::watchItsEnd() {
  auto arrivals = arrivals_;
  auto messages = messages_;
  // The next message would start another agent.
  [connection_.get() setInterruptionHandler:^{
    arrivals->add([messages](Receiver &receiver) { agentEnded(*messages, receiver); });
  }];
  [connection_.get() setInvalidationHandler:^{
    arrivals->end(errorOfTransport(TransportInvalidError, "the agent cannot be reached"));
  }];
}

// The outcome of a message without a reply: an agent that was to end has done so.
void AgentXPC::settle(Messages &messages, Number number, Receiver &receiver,
                      const ClientError &error) {
  auto sent = messages.extract(number);
  if (!sent)
    return;
  if (sent.mapped().mayEndAgent && error.kind() == Kind::Interrupted)
    receiver.received(number, {});
  else
    receiver.failed(number, error);
}

// Messages with a reply block get their error from the transport; the others end
// here.
void AgentXPC::agentEnded(Messages &messages, Receiver &receiver) {
  std::set<Number> last;
  for (const auto &[number, sent] : messages)
    if (sent.mayEndAgent)
      last.insert(number);
  ClientError ended = errorOfTransport(TransportInterruptedError, "the agent has ended");
  for (Number number : last)
    settle(messages, number, receiver, ended);
}

id<KWPrivilegedOperation> AgentXPC::agent(Number number) {
  auto arrivals = arrivals_;
  auto messages = messages_;
  return [connection_.get() remoteObjectProxyWithErrorHandler:^(NSError *error) {
    ClientError failure = clientError(error);
    arrivals->add([messages, number, failure](Receiver &receiver) {
      settle(*messages, number, receiver, failure);
    });
  }];
}

void AgentXPC::send(Number number, const AgentMessage &message) {
  if (!NS::canBeSent(message.arguments))
    refuse("text that is no UTF-8 cannot be sent to the agent");
  @autoreleasepool {
    // The transport cancels the agent's progress with the one that is current.
    NSProgress *progress = [NSProgress discreteProgressWithTotalUnitCount:1];
    messages_->emplace(number, Sent{NS::Retained<NSProgress *>(progress), message.mayEndAgent});
    [progress becomeCurrentWithPendingUnitCount:1];
    bool isSent = NS::sendRequest(
        agent(number), message.member, message.arguments,
        [arrivals = arrivals_, messages = messages_, number](const NS::XPCValues &values) {
          arrivals->add([messages, number, values](Receiver &receiver) {
            if (messages->erase(number) > 0)
              receiver.received(number, values);
          });
        });
    [progress resignCurrent];
    if (isSent)
      return;
    messages_->erase(number);
  }
  refuse("the agent has no such operation");
}

void AgentXPC::cancel(Number number) {
  auto sent = messages_->find(number);
  if (sent == messages_->end())
    return;
  [sent->second.progress.get() cancel];
  arrivals_->add([number](Receiver &receiver) { receiver.isBeingCancelled(number); });
}

} // namespace

std::unique_ptr<AgentConnection> AgentConnection::open(const std::string &bus,
                                                       const ConnectionOptions &options) {
  if (bus != "system")
    throw ClientError(Kind::Unreachable, "", "this system has no bus \"" + bus + "\"");
  return std::make_unique<AgentXPC>(options);
}

} // namespace kw
