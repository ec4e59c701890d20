// The listener on the message bus: one connection per unique bus name, made at
// its first message and released when the name goes away.
//
// The thread of the bus only reads, queues and sends; requests are handled on
// threads of a pool. Replies come back to it through its mailbox, and go out
// by an outbox that keeps those for which a client has no room: meanwhile
// that client's next requests wait.
#include "Foundation/XPCListener.h"

#include "Foundation/Exception.h"
#include "Foundation/Linux/BusOutbox.h"
#include "Foundation/Linux/BusThread.h"
#include "Foundation/Linux/FreeMemory.h"
#include "Foundation/Linux/ServiceConnection.h"
#include "Foundation/Linux/XPCMessageCoding.h"
#include "Foundation/Log.h"
#include "Foundation/Process.h"

#include <algorithm>
#include <future>
#include <map>
#include <sdbus-c++/sdbus-c++.h>
#include <stdexcept>
#include <utility>

namespace NS {
namespace {

constexpr const char *failed = "org.freedesktop.DBus.Error.Failed";
constexpr const char *limitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr const char *notSupported = "org.freedesktop.DBus.Error.NotSupported";
constexpr const char *accessDenied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr const char *invalidArguments = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char *unknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";

constexpr std::chrono::seconds workerIdleTime{10};

// About what a message takes beside its texts; a refusal is no larger.
constexpr std::size_t messageOverhead = 256;
// More than the answer to any of the bus's usual questions, of which the
// description of what is served is the largest.
constexpr std::size_t usualAnswerBytes = std::size_t{16} << 10;

// How long an ending process tries to give its name back.
constexpr std::chrono::milliseconds nameReleaseTime{500};

std::string objectPathForName(const std::string &name) {
  std::string path = "/" + name;
  std::replace(path.begin(), path.end(), '.', '/');
  return path;
}

// Both ways to answer a call, made while it is at hand: holding on to the call
// itself would keep open whatever descriptors a stranger attached to it.
struct PendingReply {
  std::string client; // its unique bus name
  std::vector<XPCParameter> kinds;
  std::string member;
  sdbus::MethodReply reply;
  sdbus::MethodReply failure;
};

// Whether a message may be lost when its client does not read.
enum class Loss { Forbidden, Allowed };

class BusListener final : public XPCListener {
public:
  BusListener(std::string name, std::string bus) : name_(std::move(name)), bus_(std::move(bus)) {}

  ~BusListener() override {
    if (connection_)
      connection_->stop(); // from here on nothing else uses the members
  }

  void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }

  void announce(std::shared_ptr<const XPCInterface> exported,
                std::shared_ptr<const XPCInterface> remote) override {
    exported_ = std::move(exported);
    remote_ = std::move(remote);
  }

  void resume() override;

private:
  struct Client {
    std::shared_ptr<ServiceConnection> connection;
    bool accepted = false;
  };

  void registerInterfaces();
  void watchClients();
  void watchUsualCalls();
  void takeName();
  void giveNameBackAtExit();

  // All of these on the thread of the bus.
  void setWaiting(const std::string &client, bool waits);
  void received(const std::string &member, const sdbus::MethodCall &call);
  void deliver(const std::string &member, sdbus::MethodCall call);
  ServiceConnection &connectionFor(const std::string &sender);
  Client makeClient(const std::string &sender);
  XPCReply expectReply(const XPCMethod &method, const sdbus::MethodCall &call);
  void answer(std::uint64_t request, const XPCOutcome &outcome);
  template <typename Message>
  void hand(Message &message, const std::string &client, std::size_t bytes,
            const std::string &member, Loss loss);
  void sendSignal(const std::string &client, const std::string &interface, const XPCMethod &method,
                  const XPCValues &values);

  const std::string name_;
  const std::string bus_;
  std::weak_ptr<XPCListenerDelegate> delegate_;
  std::shared_ptr<const XPCInterface> exported_;
  std::shared_ptr<const XPCInterface> remote_;
  std::shared_ptr<WorkerPool> pool_;
  std::unique_ptr<BusThread> connection_;
  std::unique_ptr<BusOutbox> outbox_;
  std::unique_ptr<FreeMemory> memory_;
  std::unique_ptr<sdbus::IObject> object_;
  std::map<std::string, Client> clients_;         // by unique bus name
  std::map<std::uint64_t, PendingReply> pending_; // by number of the request
  std::uint64_t lastRequest_ = 0;
};

void BusListener::resume() {
  if (connection_)
    return;
  auto connection = std::make_unique<BusThread>(bus_);
  pool_ = std::make_shared<WorkerPool>(limitsOfRequestsUnderWay(), workerIdleTime);
  connection_ = std::move(connection);
  outbox_ = std::make_unique<BusOutbox>(
      *connection_, UnreadLimits{},
      [this](const std::string &client, bool waits) { setWaiting(client, waits); });
  memory_ = std::make_unique<FreeMemory>(*connection_);
  object_ = sdbus::createObject(connection_->bus(), objectPathForName(name_));
  registerInterfaces();
  watchClients();
  watchUsualCalls();
  takeName();
  giveNameBackAtExit();
  connection_->start([](const std::string &reason) {
    Log("The bus is gone: %@", reason);
    Process::shared().exit(1);
  });
}

void BusListener::registerInterfaces() {
  if (exported_)
    for (const XPCMethod &method : exported_->methods) {
      sdbus::Flags flags;
      if (method.oneWay)
        flags.set(sdbus::Flags::METHOD_NO_REPLY);
      object_->registerMethod(
          exported_->name, method.member, busSignature(method.arguments),
          parameterNames(method.arguments), busSignature(method.replies),
          parameterNames(method.replies),
          [this, member = method.member](const sdbus::MethodCall &call) { received(member, call); },
          flags);
    }
  if (remote_)
    for (const XPCMethod &method : remote_->methods)
      object_->registerSignal(remote_->name, method.member, busSignature(method.arguments),
                              parameterNames(method.arguments));
  object_->finishRegistration();
}

void BusListener::watchClients() {
  // The bus alone sends this signal under its own name; no client can forge it.
  connection_->bus().addMatch(
      "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
      "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg2=''",
      [this](sdbus::Message &message) {
        std::string name;
        if (message.getSender() == "org.freedesktop.DBus") {
          message >> name;
          outbox_->forget(name);
          clients_.erase(name);
          memory_->giveBackSoon();
        }
      },
      sdbus::floating_slot);
}

// The library beneath answers these by itself, at once and without end.
void BusListener::watchUsualCalls() {
  connection_->filterCalls([this](const std::string &sender, const std::string &interface) {
    const bool isOurs = interface.empty() || (exported_ && interface == exported_->name);
    return isOurs || outbox_->admits(sender, usualAnswerBytes);
  });
}

void BusListener::takeName() {
  try {
    connection_->bus().requestName(name_);
  } catch (const sdbus::Error &error) {
    const bool taken = error.getName() == "org.freedesktop.DBus.Error.FileExists";
    throw Exception(InternalInconsistencyException,
                    "The name \"" + name_ + "\" cannot be taken on the bus \"" + bus_ +
                        "\": " + (taken ? "it has an owner already" : error.getMessage()));
  }
}

void BusListener::giveNameBackAtExit() {
  // A message sent from then on starts a new process instead of being lost in
  // the queue of this one. The promise breaks, and so nobody waits, when the
  // thread of the bus is gone.
  Process::shared().beforeExit([this, mailbox = std::weak_ptr(connection_->mailbox())] {
    auto box = mailbox.lock();
    if (!box)
      return;
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> future = done->get_future();
    box->post([this, done = std::move(done)] {
      try {
        connection_->bus().releaseName(name_);
      } catch (const sdbus::Error &error) {
        Log("The name %@ could not be given back: %@", name_, error.what());
      }
      connection_->stopHandling();
      done->set_value();
    });
    static_cast<void>(future.wait_for(nameReleaseTime));
  });
}

void BusListener::setWaiting(const std::string &client, bool waits) {
  auto found = clients_.find(client);
  if (found == clients_.end())
    return;
  if (waits)
    found->second.connection->pause();
  else
    found->second.connection->proceed();
}

// Whatever goes wrong becomes the bus's own error; nothing else may leave
// through the C library beneath.
void BusListener::received(const std::string &member, const sdbus::MethodCall &call) {
  try {
    deliver(member, call);
  } catch (const sdbus::Error &) {
    // Without end, they too would silence the agent for everybody.
    if (outbox_->admitsRefusal(call.getSender(), messageOverhead))
      throw;
  } catch (const std::exception &exception) {
    Log("%@ could not be delivered: %@", member, exception.what());
    throw sdbus::Error(failed, "The request could not be delivered.");
  }
}

void BusListener::deliver(const std::string &member, sdbus::MethodCall call) {
  ServiceConnection &connection = connectionFor(call.getSender());
  const XPCMethod *method = connection.methodWithMember(member);
  if (!method)
    throw sdbus::Error(unknownMethod, "Nothing here answers to " + member + ".");
  if (!method->invoker)
    throw sdbus::Error(notSupported, member + " is not supported here.");
  XPCValues arguments;
  try {
    arguments = readValues(call, method->arguments);
  } catch (const sdbus::Error &) {
    throw sdbus::Error(invalidArguments, "The arguments of " + member + " cannot be read.");
  }
  if (textBytes(arguments) > maximumMessageBytes)
    throw sdbus::Error(limitsExceeded, "The arguments of " + member + " are too large.");
  const std::uint64_t former = lastRequest_;
  try {
    XPCReply reply = expectReply(*method, call);
    if (!connection.deliver(*method, std::move(arguments), std::move(reply)))
      throw sdbus::Error(limitsExceeded, "Too many of your requests are waiting.");
  } catch (...) {
    // One that nobody waits for has no number of its own.
    if (lastRequest_ != former)
      pending_.erase(lastRequest_);
    throw;
  }
}

ServiceConnection &BusListener::connectionFor(const std::string &sender) {
  auto found = clients_.find(sender);
  if (found == clients_.end())
    found = clients_.emplace(sender, makeClient(sender)).first;
  if (!found->second.accepted)
    throw sdbus::Error(accessDenied, "Your connection was refused.");
  return *found->second.connection;
}

BusListener::Client BusListener::makeClient(const std::string &sender) {
  auto send = [this, sender, mailbox = connection_->mailbox()](
                  const std::string &interface, const XPCMethod &method, XPCValues values) {
    mailbox->post([this, sender, interface, method, values = std::move(values)] {
      sendSignal(sender, interface, method, values);
    });
  };
  Client client{std::make_shared<ServiceConnection>(pool_, RequestQueueLimits{}, send), false};
  auto delegate = delegate_.lock();
  client.accepted =
      delegate && delegate->listenerShouldAcceptNewConnection(*this, client.connection);
  return client;
}

XPCReply BusListener::expectReply(const XPCMethod &method, const sdbus::MethodCall &call) {
  if (method.oneWay)
    return XPCReply([member = method.member](const XPCOutcome &outcome) {
      if (!outcome.reason.empty())
        Log("%@: %@", member, outcome.reason);
    });
  const std::uint64_t request = ++lastRequest_;
  pending_.emplace(request,
                   PendingReply{call.getSender(), method.replies, method.member, call.createReply(),
                                call.createErrorReply(sdbus::Error(
                                    failed, "The request failed; the agent's log says why."))});
  // So that a request for whose answer no memory is left can be told of that.
  BusMailbox::Works lastResort;
  lastResort.emplace_back([this, request] { answer(request, {false, {}, "out of memory"}); });
  return XPCReply([this, request, mailbox = connection_->mailbox(),
                   lastResort = std::move(lastResort)](XPCOutcome outcome) mutable {
    // A request that its queue refuses fails while it is being delivered: that
    // is answered there, and what is posted meanwhile comes too late.
    const bool isReply = outcome.replied;
    try {
      auto work = [this, request, outcome = std::move(outcome)] { answer(request, outcome); };
      isReply ? mailbox->doOrPost(std::move(work)) : mailbox->post(std::move(work));
    } catch (const std::bad_alloc &) {
      mailbox->post(std::move(lastResort));
    }
  });
}

void BusListener::answer(std::uint64_t request, const XPCOutcome &outcome) {
  auto node = pending_.extract(request);
  if (node.empty() || !clients_.contains(node.mapped().client))
    return;
  PendingReply &pending = node.mapped();
  std::string reason = outcome.reason;
  try {
    if (outcome.replied) {
      const XPCValues values = fittedValues(outcome.values);
      const std::size_t bytes = textBytes(values);
      if (bytes > maximumMessageBytes)
        throw std::length_error("the reply is too large for a message");
      appendValues(pending.reply, pending.kinds, values);
      hand(pending.reply, pending.client, bytes, pending.member, Loss::Forbidden);
      return;
    }
  } catch (const std::exception &exception) {
    reason = exception.what();
  }
  try {
    Log("%@ failed: %@", pending.member, reason);
    hand(pending.failure, pending.client, 0, pending.member, Loss::Forbidden);
  } catch (const std::bad_alloc &) {
    pending.failure.send(); // uncounted rather than never
  }
}

template <typename Message>
void BusListener::hand(Message &message, const std::string &client, std::size_t bytes,
                       const std::string &member, Loss loss) {
  auto held = std::make_shared<Message>(std::move(message));
  try {
    auto send = [held, member] {
      try {
        held->send();
      } catch (const sdbus::Error &error) {
        Log("%@ could not be sent: %@", member, error.what());
      }
    };
    if (loss == Loss::Allowed)
      outbox_->sendOrDrop(client, bytes + messageOverhead, std::move(send));
    else
      outbox_->send(client, bytes + messageOverhead, std::move(send));
  } catch (const std::bad_alloc &) {
    message = std::move(*held);
    throw;
  }
}

void BusListener::sendSignal(const std::string &client, const std::string &interface,
                             const XPCMethod &method, const XPCValues &values) {
  if (!clients_.contains(client) || textBytes(values) > maximumMessageBytes)
    return;
  try {
    sdbus::Signal signal = object_->createSignal(interface, method.member);
    signal.setDestination(client);
    appendValues(signal, method.arguments, values);
    hand(signal, client, textBytes(values), method.member, Loss::Allowed);
  } catch (const std::exception &exception) {
    Log("%@ could not be sent: %@", method.member, exception.what());
  }
}

} // namespace

std::unique_ptr<XPCListener> XPCListener::listenerWithMachServiceName(std::string_view name,
                                                                      std::string_view bus) {
  return std::make_unique<BusListener>(std::string(name), std::string(bus));
}

} // namespace NS
