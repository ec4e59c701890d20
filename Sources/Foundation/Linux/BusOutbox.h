// The way out to the clients: a message goes at once, or waits until its
// client has read enough of what it was sent before.
//
// Everything here happens on the thread of the bus.
#pragma once

#include "Foundation/Linux/BusThread.h"
#include "Foundation/Linux/UnreadMessages.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace sdbus {
class IProxy;
class Message;
class MethodReply;
} // namespace sdbus

namespace NS {

class BusOutbox {
public:
  // Hands one message to the bus; must not throw.
  using Send = std::function<void()>;
  // Told when a client's messages begin to wait, and when they no longer do.
  using Listener = std::function<void(const std::string &client, bool waits)>;

  // The connection must outlive it.
  BusOutbox(BusThread &connection, UnreadLimits limits, Listener listener);
  ~BusOutbox();
  BusOutbox(const BusOutbox &) = delete;
  BusOutbox &operator=(const BusOutbox &) = delete;

  // In order for one client; about so many bytes.
  void send(const std::string &client, std::size_t bytes, Send send);
  // The same for what is better lost than kept when the client does not read.
  void sendOrDrop(const std::string &client, std::size_t bytes, Send send);
  // For what is sent without this outbox: counts it, or says that there is no
  // room for it.
  bool admits(const std::string &client, std::size_t bytes);
  bool admitsRefusal(const std::string &client, std::size_t bytes);
  // The client is gone, and with it what waits.
  void forget(const std::string &client);

private:
  struct Waiting {
    Send send;
    std::size_t bytes;
  };

  bool canGo(const std::string &client, std::size_t bytes) const;
  bool count(bool hasRoom, const std::string &client, std::size_t bytes);
  void measure(const std::string &client);
  void measureAll();
  void received(const std::string &client, sdbus::MethodReply &reply, bool failed);
  void sendWhatFits();

  BusThread &connection_;
  Listener listener_;
  UnreadMessages unread_;
  std::map<std::string, std::deque<Waiting>> waiting_; // none of them empty
  std::set<std::string> measuring_;                    // asked about, not yet answered
  std::unique_ptr<sdbus::IProxy> statistics_;
  bool isMeasurable_ = true; // until the bus turns out to keep no statistics
  bool isMeasuringAgain_ = false;
  std::shared_ptr<const bool> alive_; // for what the connection calls later
};

} // namespace NS
