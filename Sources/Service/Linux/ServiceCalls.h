// Checks the path, interface, member and signature of every call that arrives
// before any code answers it, and sends each answer by the outbox.
//
// All members are for the thread of the bus.
#pragma once

#include "Service/Linux/ServiceControl.h"

#include <memory>
#include <string>

namespace NS {

class ServiceCalls {
public:
  struct Served {
    std::string path;
    std::shared_ptr<const XPCInterface> exported;
    std::shared_ptr<const XPCInterface> remote;
  };

  // All of them must outlive it.
  ServiceCalls(Served served, BusOutbox &outbox, ServiceClients &clients, ServiceReplies &replies,
               ServiceControl &control);
  ServiceCalls(const ServiceCalls &) = delete;
  ServiceCalls &operator=(const ServiceCalls &) = delete;

  // Answers the call, or has it answered later. Throws only for a lack of
  // memory for the answer.
  void received(BusMessage &call);

private:
  BusMessage answerTo(BusMessage &call);
  BusMessage describe(const BusMessage &call) const;
  BusMessage answerAboutProperties(BusMessage &call) const;
  bool servesInterface(std::string_view name) const;
  void deliver(BusMessage &call);

  const Served served_;
  const std::string description_; // of the object, as XML
  BusOutbox &outbox_;
  ServiceClients &clients_;
  ServiceReplies &replies_;
  ServiceControl &control_;
};

} // namespace NS
