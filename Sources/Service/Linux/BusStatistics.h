// The bus's figures of the bytes that it keeps for a client. Each usual bus
// reports them in its own way, and only to root.
//
// All members are for the thread of the bus.
#pragma once

#include "Service/Linux/BusThread.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace NS {

class BusStatistics {
public:
  enum class Answer { Bytes, None, Gone }; // None: no figure now, perhaps later
  using Receiver = std::function<void(const std::string &client, Answer answer, std::size_t bytes)>;

  // The thread must outlive it. The receiver gets one answer about each client
  // that the bus was asked about.
  BusStatistics(BusThread &thread, Receiver receiver);
  BusStatistics(const BusStatistics &) = delete;
  BusStatistics &operator=(const BusStatistics &) = delete;

  // False once the bus has turned out to have no statistics.
  bool areKept() const { return way_ != Way::None; }
  // Whether it is known to keep account of users, as dbus-broker does.
  bool areOfUsers() const { return way_ == Way::AllClients; }
  // False without statistics, and while an answer about all clients is due.
  bool canAsk() const { return areKept() && !isAskingAboutAll_; }
  void ask(const std::vector<std::string> &clients);

private:
  enum class Way { EachClient, AllClients, None };

  BusMessage question(const char *member);
  void askAbout(const std::string &client);
  void askAboutAll(std::vector<std::string> clients);
  void answered(const std::string &client, BusMessage &answer);
  void answeredAboutAll(const std::vector<std::string> &clients, BusMessage &answer);
  void tryNextWay();

  BusThread &thread_;
  const Receiver receiver_;
  Way way_ = Way::EachClient;
  bool isAskingAboutAll_ = false;
};

} // namespace NS
