// Work that a test holds up, and lets go.
#pragma once

#include "Support/Signal.h"

#include <functional>

namespace kwtest {

// The request waits in the gate until the test opens it.
class Gate {
public:
  std::function<void()> request() const {
    return [entered = entered_, opened = opened_] {
      entered.raise();
      opened.wait();
    };
  }
  void waitUntilEntered() const { entered_.wait(); }
  void open() const { opened_.raise(); }

private:
  Signal entered_;
  Signal opened_;
};

} // namespace kwtest
