// A process that notes its end and goes on.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Processes/Process.h"

#include <functional>
#include <optional>

namespace kwtest {

class FakeProcess : public NS::Process {
public:
  void exit(int status) override {
    if (atExit)
      atExit();
    exitStatus = status;
  }
  void beforeExit(std::function<void()>) override {}
  void installSignalDispositions() override {}

  std::function<void()> atExit;  // the test's checks at that moment
  std::optional<int> exitStatus; // nothing until the end

private:
  NS::ScopedOverride<NS::Process> override_{*this};
};

} // namespace kwtest
