// The second interface, by which a client controls its own requests: cancel
// one, end all when it leaves, follow their progress.
//
// All members are for the thread of the bus.
#pragma once

#include "Service/Linux/ServiceClients.h"
#include "Service/Linux/ServiceReplies.h"

#include <set>
#include <string>
#include <string_view>

namespace NS {

class ServiceControl {
public:
  // All of them must outlive it.
  ServiceControl(BusThread &thread, BusOutbox &outbox, ServiceClients &clients,
                 ServiceReplies &replies, std::string path);
  ServiceControl(const ServiceControl &) = delete;
  ServiceControl &operator=(const ServiceControl &) = delete;

  // The interface for introspection.
  static std::string_view description();
  // Null when there is no such method.
  static const char *signatureOf(std::string_view member);
  // Does the work of a call with one of these members and signatures, and
  // returns its answer.
  BusMessage handle(BusMessage &call);
  // Forgets a client that is gone.
  void leave(std::string_view client);

  // Makes a signal that carries only padding, of so many bytes at least. It
  // shows whether the client reads.
  BusMessage makeTrial(const std::string &client, std::size_t bytes);

private:
  // The last report of each request, by serial.
  using Told = std::map<std::uint32_t, Progress::Snapshot>;

  void setFollowing(std::string_view client, bool follows);
  void tellLater();
  void tell();
  void tell(const std::string &client, Told &told);

  BusThread &thread_;
  BusOutbox &outbox_;
  ServiceClients &clients_;
  ServiceReplies &replies_;
  const std::string path_;
  std::map<std::string, Told, std::less<>> followers_; // by unique bus name
  bool isAboutToTell_ = false;
};

} // namespace NS
