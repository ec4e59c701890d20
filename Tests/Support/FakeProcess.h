// A process that notes its end and goes on.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Processes/Process.h"

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace kwtest {

class FakeProcess : public NS::Process {
public:
  void exit(int status) override {
    for (const auto &hook : std::exchange(hooks_, {}))
      hook();
    if (atExit)
      atExit();
    exitStatus = status;
  }
  void beforeExit(std::function<void()> hook) override { hooks_.push_back(std::move(hook)); }
  void installSignalDispositions() override {}

  std::function<void()> atExit;  // the test's checks at that moment
  std::optional<int> exitStatus; // nothing until the end

private:
  std::vector<std::function<void()>> hooks_;
  NS::ScopedOverride<NS::Process> override_{*this};
};

} // namespace kwtest
