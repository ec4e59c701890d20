// A connection to the message bus, without descriptors in its messages: the bus
// removes any that a sender attached.
//
// Sends and receives messages one by one. The owner interprets them and answers
// every call itself; the library beneath answers none. One thread at a time may
// use it; BusWaker is thread-safe.
#pragma once

#include "Protocol/Linux/BusMessage.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

struct sd_bus;

namespace NS {

// Ends the wait of a connection from another thread. Thread-safe.
class BusWaker {
public:
  // Raises BusError when no descriptor is left.
  BusWaker();
  ~BusWaker();
  BusWaker(const BusWaker &) = delete;
  BusWaker &operator=(const BusWaker &) = delete;

  // Ends the wait under way, or else the next one at once.
  void wake() noexcept;
  void clear() noexcept;
  int descriptor() const { return descriptor_; }

private:
  const int descriptor_;
};

class BusConnection {
public:
  using Clock = std::chrono::steady_clock;

  static constexpr const char *busName = "org.freedesktop.DBus";
  static constexpr const char *busPath = "/org/freedesktop/DBus";
  static constexpr const char *busInterface = "org.freedesktop.DBus";

  enum class Opening {
    Await, // the constructor blocks until the bus has accepted the connection
    Begin, // next() and wait() go on with it
  };

  // "system", "session", or an address. Raises BusError when the bus cannot be
  // reached.
  explicit BusConnection(const std::string &bus, Opening opening = Opening::Await);
  // Sends the remaining messages, if the bus takes them at once.
  ~BusConnection();
  BusConnection(const BusConnection &) = delete;
  BusConnection &operator=(const BusConnection &) = delete;

  // Tells whether the bus has accepted the connection; it does so once.
  bool isAccepted() const;
  // Blocks until then, at most until the given time, or as long as the library does.
  // False when the given time came first. Raises BusError when the bus refuses;
  // then only the destruction is allowed.
  bool waitUntilAccepted(std::optional<Clock::time_point> until);

  BusMessage makeCall(const std::string &destination, const std::string &path,
                      const std::string &interface, const std::string &member);
  // For one receiver alone.
  BusMessage makeSignal(const std::string &destination, const std::string &path,
                        const std::string &interface, const std::string &member);

  // Sends the message, or keeps it until the bus takes it. Does not block.
  // Returns its serial; the answer to a call comes out of next(). Raises BusError.
  std::uint32_t send(BusMessage &message);
  // Sends the call and waits for its answer, at most the library's 25 s. Raises
  // BusError for an error. Other messages that arrive meanwhile come out of next() later.
  BusMessage callAndWait(BusMessage &call);

  // Returns the next message that has arrived, or an empty one. Raises
  // BusDisconnected when the connection is lost, BusError for any other
  // failure: the connection then remains.
  BusMessage next();
  // Waits until a message arrives, can be sent or is due, until the waker
  // wakes, or until the given time; clears the waker. Raises BusError.
  void wait(BusWaker &waker, std::optional<Clock::time_point> until);

  // These ask the bus and wait for its answer as callAndWait does.
  // Has the bus send the messages that match the rule.
  void addMatch(const std::string &rule);
  // Without queueing. False when the name has another owner.
  bool requestName(const std::string &name);
  void releaseName(const std::string &name);
  // The unique name of the owner; empty when there is none.
  std::optional<std::string> ownerOfName(const std::string &name);

  // The unique name that the bus gave this connection.
  std::string uniqueName() const;

private:
  BusMessage askBus(const char *member, const std::string &name,
                    std::optional<std::uint32_t> flags = std::nullopt);
  void start(const std::string &address);

  sd_bus *bus_ = nullptr;
  BusMessage arrived_; // set by the library during next()
};

} // namespace NS
