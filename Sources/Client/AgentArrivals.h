// Messages of the agent on their way to the thread that owns the connection.
#pragma once

#include "Client/AgentConnection.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace kw {

// For transports that hand messages over on threads of their own. Thread-safe;
// one thread waits.
class AgentArrivals {
public:
  using Arrival = std::function<void(AgentConnection::Receiver &receiver)>;
  using Clock = AgentConnection::Clock;

  // Hands the arrival to the receiver of the next wait. Does nothing once the
  // connection has ended.
  void add(Arrival arrival);
  // The connection has ended. Only the first reason counts.
  void end(const ClientError &reason);
  // The wait under way returns, or the next one at once.
  void wake();

  // Hands all arrivals over, in their order. Without any it waits for one, for
  // wake() or for the time. Throws the reason when the connection has ended and
  // all arrivals are handed over.
  void wait(AgentConnection::Receiver &receiver, std::optional<Clock::time_point> until);

private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Arrival> arrived_;
  std::optional<ClientError> ended_;
  bool isAwake_ = false;
};

} // namespace kw
