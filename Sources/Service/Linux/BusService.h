// Serves a name on the message bus: owns the parts that do so, and passes each
// message that arrives to the part that it concerns.
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
#pragma once

#include "Service/Linux/FreeMemory.h"
#include "Service/Linux/ServiceCalls.h"

#include <memory>
#include <string>
#include <string_view>

namespace NS {

class BusService {
public:
  // Connects to the bus: "system", "session", or an address. The service of a
  // name has one object, with both interfaces in its description. Calls the
  // acceptor on the thread of the bus. Raises InternalInconsistencyException
  // when the bus cannot be reached.
  BusService(std::string name, const std::string &bus, std::shared_ptr<const XPCInterface> exported,
             std::shared_ptr<const XPCInterface> remote, ServiceClients::Acceptor acceptor);
  // Stops the thread. Requests under way run to their end without an answer.
  ~BusService();
  BusService(const BusService &) = delete;
  BusService &operator=(const BusService &) = delete;

  // Takes the name and begins to serve it, once. Raises
  // InternalInconsistencyException when the name cannot be taken. Gives the name
  // back before the process ends by itself, and ends the process with status 1
  // when the bus is gone.
  void start();

private:
  void watchClients();
  void takeName();
  void giveNameBackAtExit();
  void received(BusMessage &message);
  void clientLeft(std::string_view client);
  void post(const std::string &client, const std::string &interface, const XPCMethod &method,
            XPCValues values);
  void sendSignal(const std::string &client, const std::string &interface, const XPCMethod &method,
                  const XPCValues &values);

  const std::string name_;
  const std::string bus_;
  const std::string path_;
  BusThread thread_;
  FreeMemory memory_;
  BusOutbox outbox_;
  ServiceClients clients_;
  ServiceReplies replies_;
  ServiceControl control_;
  ServiceCalls calls_;
};

} // namespace NS
