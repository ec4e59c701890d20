// GNUstep knows which thread is the main one only after that thread has asked
// for its own. So the main thread asks before each test starts threads.
#include "Foundation/Threads/RunLoop.h"

#include <gtest/gtest.h>

namespace {

class MainThreadAsksFirst final : public testing::Environment {
public:
  void SetUp() override { static_cast<void>(NS::RunLoop::mainRunLoop()); }
};

const auto *const added = testing::AddGlobalTestEnvironment(new MainThreadAsksFirst);

} // namespace
