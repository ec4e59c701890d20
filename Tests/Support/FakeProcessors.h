// A number of processors that a test makes up.
#pragma once

#include "Foundation/Linux/WalkHelpers.h"
#include "Foundation/SharedInstance.h"

namespace kwtest {

class FakeProcessors final : public NS::Processors {
public:
  explicit FakeProcessors(unsigned count) : count_(count) {}
  unsigned usable() const override { return count_; }

private:
  unsigned count_;
  NS::ScopedOverride<NS::Processors> override_{*this};
};

} // namespace kwtest
