// The listener on the message bus: takes the name, and connects the parts that
// serve it.
//
//   BusThread       the one thread that touches the bus
//   ServiceCalls    checks each call that arrives
//   ServiceClients  one connection per unique bus name
//   ServiceReplies  the requests that are not answered yet
//   ServiceControl  a client's control of its own requests
//   BusOutbox       lets messages out as their clients read
//
// The thread of the bus only reads, queues and sends. Threads of a pool handle
// requests, and their replies come back through its mailbox.
#include "Service/XPCListener.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Processes/Process.h"
#include "Protocol/BusNames.h"
#include "Protocol/Linux/BusValues.h"
#include "Service/Internal/RequestInvocation.h"
#include "Service/Linux/FreeMemory.h"
#include "Service/Linux/ServiceCalls.h"

#include <future>
#include <utility>

namespace NS {
namespace {

constexpr std::chrono::seconds workerIdleTime{10};

// The longest time for an ending process to release its name.
constexpr std::chrono::milliseconds nameReleaseTime{500};

// The parts that serve the name while this process has it.
struct Service {
  Service(const std::string &bus, ServiceCalls::Served served, ServiceClients::Acceptor acceptor)
      : path(served.path), thread(bus), memory(thread),
        outbox(
            thread,
            [this](const std::string &client, bool waits) { clients.setWaiting(client, waits); },
            [this](const std::string &client, std::size_t bytes) {
              return control.makeTrial(client, bytes);
            }),
        clients(thread, std::make_shared<WorkerPool>(limitsOfRequestsUnderWay(), workerIdleTime),
                std::move(acceptor),
                [this](const std::string &client, const std::string &interface,
                       const XPCMethod &method,
                       XPCValues values) { post(client, interface, method, std::move(values)); }),
        replies(thread, outbox), control(thread, outbox, clients, replies, path),
        calls(std::move(served), outbox, clients, replies, control) {}

  void watchClients();
  void received(BusMessage &message);
  void clientLeft(std::string_view client);
  void post(const std::string &client, const std::string &interface, const XPCMethod &method,
            XPCValues values);
  void sendSignal(const std::string &client, const std::string &interface, const XPCMethod &method,
                  const XPCValues &values);

  const std::string path;
  BusThread thread;
  FreeMemory memory;
  BusOutbox outbox;
  ServiceClients clients;
  ServiceReplies replies;
  ServiceControl control;
  ServiceCalls calls;
};

void Service::watchClients() {
  thread.bus().addMatch("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                        "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg2=''");
}

void Service::received(BusMessage &message) {
  if (message.kind() == BusMessage::Kind::Call)
    return calls.received(message);
  // Only the bus sends this signal under its own name; no client can forge it.
  if (message.sender() == BusConnection::busName && message.member() == "NameOwnerChanged" &&
      message.signature() == "sss")
    clientLeft(message.readText());
}

// Needs no memory, so that every client that leaves is forgotten.
void Service::clientLeft(std::string_view client) {
  const ServiceClient *known = clients.find(client);
  replies.leave(client, known && known->endsOnLeaving);
  control.leave(client);
  clients.erase(client);
  outbox.forget(client);
  memory.giveBackSoon();
}

void Service::post(const std::string &client, const std::string &interface, const XPCMethod &method,
                   XPCValues values) {
  thread.mailbox()->post([this, client, interface, method, values = std::move(values)] {
    sendSignal(client, interface, method, values);
  });
}

void Service::sendSignal(const std::string &client, const std::string &interface,
                         const XPCMethod &method, const XPCValues &values) {
  if (!clients.find(client))
    return;
  try {
    BusMessage signal = thread.bus().makeSignal(client, path, interface, method.member);
    writeValues(signal, method.arguments, values);
    outbox.sendOrDrop(std::move(signal));
  } catch (const std::exception &exception) {
    Log("%@ could not be sent: %@", method.member, exception.what());
  }
}

class BusListener final : public XPCListener {
public:
  BusListener(std::string name, std::string bus) : name_(std::move(name)), bus_(std::move(bus)) {}

  ~BusListener() override {
    if (service_)
      service_->thread.stop(); // from here on no other thread uses the members
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
  bool accepts(const std::shared_ptr<XPCConnection> &connection);
  void takeName();
  void giveNameBackAtExit();

  const std::string name_;
  const std::string bus_;
  std::weak_ptr<XPCListenerDelegate> delegate_;
  std::shared_ptr<const XPCInterface> exported_;
  std::shared_ptr<const XPCInterface> remote_;
  std::unique_ptr<Service> service_;
};

void BusListener::resume() {
  if (service_)
    return;
  service_ = std::make_unique<Service>(
      bus_, ServiceCalls::Served{kw::objectPathForName(name_), exported_, remote_},
      [this](const std::shared_ptr<XPCConnection> &connection) { return accepts(connection); });
  service_->watchClients();
  takeName();
  giveNameBackAtExit();
  service_->thread.start([this](BusMessage &message) { service_->received(message); },
                         [](const std::string &reason) {
                           Log("The bus is gone: %@", reason);
                           Process::shared().exit(1);
                         });
}

bool BusListener::accepts(const std::shared_ptr<XPCConnection> &connection) {
  return acceptConnection(delegate_, *this, connection);
}

void BusListener::takeName() {
  const std::string beginning =
      "The name \"" + name_ + "\" cannot be taken on the bus \"" + bus_ + "\": ";
  try {
    if (service_->thread.bus().requestName(name_))
      return;
  } catch (const BusError &error) {
    throw Exception(InternalInconsistencyException, beginning + error.what());
  }
  throw Exception(InternalInconsistencyException, beginning + "it has an owner already");
}

void BusListener::giveNameBackAtExit() {
  // A message sent afterwards starts a new process instead of being lost in the
  // queue of this one. When the thread of the bus is gone, the promise breaks,
  // so this does not wait.
  Process::shared().beforeExit([this, mailbox = std::weak_ptr(service_->thread.mailbox())] {
    auto box = mailbox.lock();
    if (!box)
      return;
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> future = done->get_future();
    box->post([this, done = std::move(done)] {
      service_->thread.stopHandling();
      try {
        service_->thread.bus().releaseName(name_);
      } catch (const BusError &error) {
        Log("The name %@ could not be given back: %@", name_, error.what());
      }
      done->set_value();
    });
    static_cast<void>(future.wait_for(nameReleaseTime));
  });
}

} // namespace

std::unique_ptr<XPCListener> XPCListener::listenerWithMachServiceName(std::string_view name,
                                                                      std::string_view bus) {
  return std::make_unique<BusListener>(std::string(name), std::string(bus));
}

} // namespace NS
