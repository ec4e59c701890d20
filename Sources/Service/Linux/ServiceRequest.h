// The state of one request between its arrival and its end.
#pragma once

#include "Foundation/Base/Progress.h"

#include <atomic>

namespace NS {

// Shared by the bus's side and the thread that handles it. Thread-safe.
class ServiceRequest {
public:
  Progress progress;

  // The first call of these two counts. False when the other, or the same, came
  // before.
  bool begin() { return leave(State::Begun); }
  bool drop() { return leave(State::Dropped); }

private:
  enum class State { Waiting, Begun, Dropped };
  bool leave(State state) {
    State waiting = State::Waiting;
    return state_.compare_exchange_strong(waiting, state);
  }

  std::atomic<State> state_{State::Waiting};
};

} // namespace NS
