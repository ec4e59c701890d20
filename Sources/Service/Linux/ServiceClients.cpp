// Makes and releases clients, and asks the bus for their process and user.
#include "Service/Linux/ServiceClients.h"

#include "Foundation/Base/Log.h"

#include <chrono>
#include <exception>
#include <utility>

namespace NS {
namespace {

constexpr std::chrono::milliseconds pauseWithoutMemory{20};

XPCRequester requesterIn(BusMessage &answer) {
  XPCRequester requester{UINT32_MAX, -1};
  if (answer.kind() != BusMessage::Kind::Reply || answer.signature() != "a{sv}")
    return requester;
  answer.enter('a', "{sv}");
  while (answer.enter('e', "sv")) {
    std::string_view key = answer.readText();
    bool isUser = key == "UnixUserID", isProcess = key == "ProcessID";
    if ((isUser || isProcess) && answer.peek().contents == "u") {
      answer.enter('v', "u");
      std::uint32_t number = answer.readUInt32();
      if (isUser)
        requester.user = number;
      else
        requester.process = static_cast<std::int32_t>(number);
      answer.leave();
    } else {
      answer.skip("v");
    }
    answer.leave();
  }
  return requester;
}

} // namespace

ServiceClients::ServiceClients(BusThread &thread, std::shared_ptr<WorkerPool> pool,
                               Acceptor acceptor, Sender sender, Leaver leaver)
    : thread_(thread), pool_(std::move(pool)), acceptor_(std::move(acceptor)),
      sender_(std::move(sender)), leaver_(std::move(leaver)) {
  thread_.addChore([this] { goOn(); });
}

ServiceClient *ServiceClients::find(std::string_view name) {
  auto found = clients_.find(name);
  return found == clients_.end() ? nullptr : &found->second;
}

ServiceClient &ServiceClients::clientOf(std::string_view name) {
  if (ServiceClient *known = find(name))
    return *known;
  std::string client(name);
  auto send = [this, client](const std::string &interface, const XPCMethod &method,
                             XPCValues values) {
    sender_(client, interface, method, std::move(values));
  };
  ServiceClient made;
  made.connection = std::make_shared<ServiceConnection>(pool_, RequestQueueLimits{}, send);
  made.isAccepted = acceptor_(made.connection);
  apply(made);
  askWho(client);
  return clients_.emplace(client, std::move(made)).first->second;
}

void ServiceClients::erase(std::string_view name) {
  auto found = clients_.find(name);
  if (found == clients_.end())
    return;
  leaving_.insert(clients_.extract(found));
  letGo();
}

void ServiceClients::setWaiting(const std::string &name, bool waits) {
  if (ServiceClient *client = find(name)) {
    client->waits = waits;
    apply(*client);
  }
}

// To go on with waiting requests takes memory. Without it they go on a little later.
void ServiceClients::apply(ServiceClient &client) noexcept {
  bool mustWait = client.waits || !client.isKnown;
  try {
    if (mustWait && !client.isSuspended)
      client.connection->suspend();
    else if (!mustWait && client.isSuspended)
      client.connection->resume();
    client.isSuspended = mustWait;
  } catch (const std::exception &) {
    thread_.doChoresAfter(pauseWithoutMemory);
  }
}

void ServiceClients::goOn() noexcept {
  for (auto &[name, client] : clients_)
    apply(client);
  letGo();
}

// A held queue would lose the waiting requests of a client that leaves.
void ServiceClients::letGo() noexcept {
  for (auto next = leaving_.begin(); next != leaving_.end();) {
    auto client = next++;
    client->second.waits = false;
    client->second.isKnown = true;
    apply(client->second);
    if (!client->second.isSuspended)
      leaving_.erase(client);
  }
}

void ServiceClients::askWho(const std::string &name) {
  BusMessage call = thread_.bus().makeCall(BusConnection::busName, BusConnection::busPath,
                                           BusConnection::busInterface, "GetConnectionCredentials");
  call.write(name);
  thread_.ask(std::move(call), [this, name](BusMessage &answer) { learnWho(name, answer); });
}

void ServiceClients::learnWho(const std::string &name, BusMessage &answer) {
  ServiceClient *client = find(name);
  if (!client)
    return;
  // Comes first: requests that end with their client must not begin.
  if (answer.errorName() == "org.freedesktop.DBus.Error.NameHasNoOwner")
    return leaver_(name);
  client->isKnown = true; // even when the answer is malformed
  try {
    client->connection->setRequester(requesterIn(answer));
  } catch (const std::exception &exception) {
    Log("A client stays unknown: %@", exception.what());
  }
  apply(*client);
}

} // namespace NS
