// What a client may say about its own requests, beside the contract: cancel
// one, end all when it leaves, follow how far they have come.
//
// Everything here happens on the thread of the bus.
#pragma once

#include "Foundation/Linux/ServiceClients.h"
#include "Foundation/Linux/ServiceReplies.h"

#include <set>
#include <string>
#include <string_view>

namespace NS {

class ServiceControl {
public:
  static constexpr const char *interfaceName = "org.keepwell.KWRequestControl";

  // All of them must outlive it.
  ServiceControl(BusThread &thread, BusOutbox &outbox, ServiceClients &clients,
                 ServiceReplies &replies, std::string path);
  ServiceControl(const ServiceControl &) = delete;
  ServiceControl &operator=(const ServiceControl &) = delete;

  // The interface as introspection shows it.
  static std::string_view description();
  // Null when there is no such method.
  static const char *signatureOf(std::string_view member);
  // Does what a call asks, whose member and signature are among these, and
  // gives its answer.
  BusMessage handle(BusMessage &call);
  void leave(std::string_view client);

  // A signal of no use to the client but that it must be read, with so many
  // bytes at least.
  BusMessage makeTrial(const std::string &client, std::size_t bytes);

private:
  // What was told last of each request, by serial.
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
