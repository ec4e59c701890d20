// Numbers of processors, and of threads for a device, that a test makes up.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Threads/Internal/Processors.h"

namespace kwtest {

class FakeProcessors final : public NS::Processors {
public:
  explicit FakeProcessors(unsigned count, unsigned forDevice = 8)
      : count_(count), forDevice_(forDevice) {}
  unsigned usable() const override { return count_; }
  unsigned threadsForDevice() const override { return forDevice_; }

private:
  unsigned count_;
  unsigned forDevice_;
  NS::ScopedOverride<NS::Processors> override_{*this};
};

} // namespace kwtest
