// Takes the name, tells the parts of each client that leaves, and sends clients
// their signals.
#include "Service/Linux/BusService.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Processes/Process.h"
#include "Protocol/BusNames.h"
#include "Protocol/Linux/BusValues.h"
#include "Service/Internal/RequestInvocation.h"

#include <chrono>
#include <future>
#include <utility>

namespace NS {
namespace {

constexpr std::chrono::seconds workerIdleTime{10};

// The longest time for an ending process to release its name.
constexpr std::chrono::milliseconds nameReleaseTime{500};

} // namespace

BusService::BusService(std::string name, const std::string &bus,
                       std::shared_ptr<const XPCInterface> exported,
                       std::shared_ptr<const XPCInterface> remote,
                       ServiceClients::Acceptor acceptor)
    : name_(std::move(name)), bus_(bus), path_(kw::objectPathForName(name_)), thread_(bus),
      memory_(thread_),
      outbox_(
          thread_,
          [this](const std::string &client, bool waits) { clients_.setWaiting(client, waits); },
          [this](const std::string &client, std::size_t bytes) {
            return control_.makeTrial(client, bytes);
          }),
      clients_(
          thread_, std::make_shared<WorkerPool>(limitsOfRequestsUnderWay(), workerIdleTime),
          std::move(acceptor),
          [this](const std::string &client, const std::string &interface, const XPCMethod &method,
                 XPCValues values) { post(client, interface, method, std::move(values)); },
          [this](std::string_view client) { clientLeft(client); }),
      replies_(thread_, outbox_), control_(thread_, outbox_, clients_, replies_, path_),
      calls_({.path = path_, .exported = std::move(exported), .remote = std::move(remote)}, outbox_,
             clients_, replies_, control_) {}

BusService::~BusService() {
  thread_.stop(); // from here on no other thread uses the members
}

void BusService::start() {
  watchClients(); // first, since a client may come with the name and leave at once
  takeName();
  giveNameBackAtExit();
  thread_.start([this](BusMessage &message) { received(message); },
                [](const std::string &reason) {
                  Log("The bus is gone: %@", reason);
                  Process::shared().exit(1);
                });
}

void BusService::watchClients() {
  thread_.bus().addMatch("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                         "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg2=''");
}

void BusService::takeName() {
  std::string beginning =
      "The name \"" + name_ + "\" cannot be taken on the bus \"" + bus_ + "\": ";
  try {
    if (thread_.bus().requestName(name_))
      return;
  } catch (const BusError &error) {
    throw Exception(InternalInconsistencyException, beginning + error.what());
  }
  throw Exception(InternalInconsistencyException, beginning + "it has an owner already");
}

void BusService::giveNameBackAtExit() {
  // A message sent afterwards starts a new process instead of being lost in the
  // queue of this one. When the thread of the bus is gone, the promise breaks,
  // so this does not wait.
  Process::shared().beforeExit([this, mailbox = std::weak_ptr(thread_.mailbox())] {
    auto box = mailbox.lock();
    if (!box)
      return;
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> future = done->get_future();
    box->post([this, done = std::move(done)] {
      thread_.stopHandling();
      try {
        thread_.bus().releaseName(name_);
      } catch (const BusError &error) {
        Log("The name %@ could not be given back: %@", name_, error.what());
      }
      done->set_value();
    });
    static_cast<void>(future.wait_for(nameReleaseTime));
  });
}

void BusService::received(BusMessage &message) {
  if (message.kind() == BusMessage::Kind::Call)
    return calls_.received(message);
  // Only the bus sends this signal under its own name; no client can forge it.
  if (message.sender() == BusConnection::busName && message.member() == "NameOwnerChanged" &&
      message.signature() == "sss")
    clientLeft(message.readText());
}

// Needs no memory, so that every client that leaves is forgotten.
void BusService::clientLeft(std::string_view client) {
  const ServiceClient *known = clients_.find(client);
  replies_.leave(client, known && known->endsOnLeaving);
  control_.leave(client);
  clients_.erase(client);
  outbox_.forget(client);
  memory_.giveBackSoon();
}

void BusService::post(const std::string &client, const std::string &interface,
                      const XPCMethod &method, XPCValues values) {
  thread_.mailbox()->post([this, client, interface, method, values = std::move(values)] {
    sendSignal(client, interface, method, values);
  });
}

void BusService::sendSignal(const std::string &client, const std::string &interface,
                            const XPCMethod &method, const XPCValues &values) {
  if (!clients_.find(client))
    return;
  try {
    BusMessage signal = thread_.bus().makeSignal(client, path_, interface, method.member);
    writeValues(signal, method.arguments, values);
    outbox_.sendOrDrop(std::move(signal));
  } catch (const std::exception &exception) {
    Log("%@ could not be sent: %@", method.member, exception.what());
  }
}

} // namespace NS
