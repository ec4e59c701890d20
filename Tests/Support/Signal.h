// An event that one thread waits for and another brings about. Copies stand
// for the same event, so that it outlives whichever thread is done first.
#pragma once

#include <chrono>
#include <future>
#include <memory>

namespace kwtest {

class Signal {
public:
  void raise() const { state_->promise.set_value(); }
  void wait() const { state_->future.wait(); }
  bool isRaised() const { return isRaisedWithin(std::chrono::seconds(0)); }
  bool isRaisedWithin(std::chrono::seconds time) const {
    return state_->future.wait_for(time) == std::future_status::ready;
  }

private:
  struct State {
    std::promise<void> promise;
    std::shared_future<void> future = promise.get_future().share();
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

} // namespace kwtest
