// The requests that are not answered yet, and their answers.
//
// All members are for the thread of the bus. Any thread may use an XPCReply.
#pragma once

#include "Protocol/XPCInterface.h"
#include "Service/Linux/BusOutbox.h"
#include "Service/Linux/ServiceRequest.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace NS {

// The reply to a request that was cancelled before its start: flags that say
// failure, empty texts, and the cancellation error.
XPCValues cancelledValues(const XPCMethod &method);

class ServiceReplies {
public:
  // Both must outlive it.
  ServiceReplies(BusThread &thread, BusOutbox &outbox) : thread_(thread), outbox_(outbox) {}
  ServiceReplies(const ServiceReplies &) = delete;
  ServiceReplies &operator=(const ServiceReplies &) = delete;

  struct Expected {
    XPCReply reply;
    std::shared_ptr<ServiceRequest> request;
    std::uint64_t number = 0; // of the expected answer, 0 without one
  };
  // The way back to the caller of this call, by which its answer is sent. The
  // method must live as long.
  Expected expect(const XPCMethod &method, const BusMessage &call);
  // Forgets the client's request with the number: the queue did not accept it,
  // and the caller answers the call itself.
  void forget(std::string_view client, std::uint64_t number);

  // Ends the client's request with the serial; false when there is none.
  bool cancel(std::string_view client, std::uint32_t serial);
  // Drops the answers for a client that is gone, and cancels its requests if it
  // asked for that.
  void leave(std::string_view client, bool endsRequests);
  // Calls back for each unanswered request of the client.
  void forEach(std::string_view client,
               const std::function<void(std::uint32_t serial, ServiceRequest &request)> &receiver);

private:
  struct Pending {
    std::uint32_t serial = 0; // of the call
    const XPCMethod *method = nullptr;
    std::shared_ptr<ServiceRequest> request;
    BusMessage reply; // all three made while the call exists
    BusMessage brief; // without the details of errors
    BusMessage failure;
  };
  using Requests = std::map<std::uint64_t, Pending>; // by number, in their order

  XPCReply replyTo(const std::string &client, std::uint64_t number);
  void answer(const std::string &client, std::uint64_t number, const XPCOutcome &outcome);
  void sendReply(Pending &pending, const XPCValues &values);
  void fail(Pending &pending, std::string_view reason);

  BusThread &thread_;
  BusOutbox &outbox_;
  std::map<std::string, Requests, std::less<>> requests_; // by unique bus name
  std::uint64_t lastNumber_ = 0;
};

} // namespace NS
