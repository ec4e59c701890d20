// An assertion handler that records failures and returns. In force during its
// life.
#pragma once

#include "Foundation/Base/AssertionHandler.h"
#include "Foundation/Base/SharedInstance.h"

#include <string>
#include <vector>

namespace kwtest {

struct AssertionFailure {
  std::string file;
  std::string description;
  friend bool operator==(const AssertionFailure &, const AssertionFailure &) = default;
};

class AssertionRecorder final : public NS::AssertionHandler {
public:
  void handleFailure(std::string_view file, const std::string &description) override {
    failures.push_back({std::string(file), description});
  }

  std::vector<AssertionFailure> failures;

private:
  NS::ScopedOverride<NS::AssertionHandler> override_{*this};
};

} // namespace kwtest
