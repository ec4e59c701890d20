// The clients of the listener, by unique bus name: made at a client's first
// request, released when its name goes away.
//
// All members are for the thread of the bus.
#pragma once

#include "Service/Linux/BusThread.h"
#include "Service/Linux/ServiceConnection.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace NS {

struct ServiceClient {
  std::shared_ptr<ServiceConnection> connection;
  bool isAccepted = false;
  bool isKnown = false;       // its process and user
  bool waits = false;         // for room in its outbox; its next requests then wait too
  bool isSuspended = false;   // by ServiceClients, while it waits or is not known
  bool endsOnLeaving = false; // whether its requests end with it
  bool wantsProgress = false; // for its requests
};

class ServiceClients {
public:
  // Asks the delegate whether to accept a connection.
  using Acceptor = std::function<bool(const std::shared_ptr<XPCConnection> &connection)>;
  // Sends a one-way message to a client; called from any thread.
  using Sender = std::function<void(const std::string &client, const std::string &interface,
                                    const XPCMethod &method, XPCValues values)>;

  // Called about a client that left before this process watched the bus for
  // that. Must erase it.
  using Leaver = std::function<void(std::string_view client)>;

  // The thread must outlive it.
  ServiceClients(BusThread &thread, std::shared_ptr<WorkerPool> pool, Acceptor acceptor,
                 Sender sender, Leaver leaver);
  ServiceClients(const ServiceClients &) = delete;
  ServiceClients &operator=(const ServiceClients &) = delete;

  // Null when there is no such client.
  ServiceClient *find(std::string_view name);
  // Makes the client at its first request.
  ServiceClient &clientOf(std::string_view name);
  // Forgets the client. Its waiting requests still run. Needs no memory.
  void erase(std::string_view name);
  // Sets whether a client's next requests are held back until it has read more.
  void setWaiting(const std::string &name, bool waits);

private:
  void askWho(const std::string &name);
  void learnWho(const std::string &name, BusMessage &answer);
  void apply(ServiceClient &client) noexcept;
  void goOn() noexcept;
  void letGo() noexcept;

  BusThread &thread_;
  const std::shared_ptr<WorkerPool> pool_;
  const Acceptor acceptor_;
  const Sender sender_;
  const Leaver leaver_;
  std::map<std::string, ServiceClient, std::less<>> clients_;
  std::map<std::string, ServiceClient, std::less<>> leaving_; // until memory lets them go on
};

} // namespace NS
