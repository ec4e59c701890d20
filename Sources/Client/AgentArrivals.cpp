// A queue with an end.
#include "Client/AgentArrivals.h"

#include <utility>

namespace kw {

void AgentArrivals::add(Arrival arrival) {
  std::lock_guard lock(mutex_);
  if (ended_)
    return;
  arrived_.push_back(std::move(arrival));
  changed_.notify_all();
}

void AgentArrivals::end(const ClientError &reason) {
  std::lock_guard lock(mutex_);
  if (!ended_)
    ended_ = reason;
  changed_.notify_all();
}

void AgentArrivals::wake() {
  std::lock_guard lock(mutex_);
  isAwake_ = true;
  changed_.notify_all();
}

void AgentArrivals::wait(AgentConnection::Receiver &receiver,
                         std::optional<Clock::time_point> until) {
  std::deque<Arrival> arrived;
  {
    std::unique_lock lock(mutex_);
    auto mayReturn = [this] { return isAwake_ || ended_ || !arrived_.empty(); };
    if (until)
      changed_.wait_until(lock, *until, mayReturn);
    else
      changed_.wait(lock, mayReturn);
    isAwake_ = false;
    if (arrived_.empty() && ended_)
      throw ClientError(*ended_);
    arrived.swap(arrived_);
  }
  for (const Arrival &arrival : arrived)
    arrival(receiver);
}

} // namespace kw
