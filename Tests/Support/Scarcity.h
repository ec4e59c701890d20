// Leaves this process without descriptors, and without the time to wait for any.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Threads/Thread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kwtest {

// While one exists, the process can open only so many descriptors more.
class FewDescriptorsLeft {
public:
  explicit FewDescriptorsLeft(std::size_t left = 0) {
    ::getrlimit(RLIMIT_NOFILE, &former_);
    struct rlimit few = {256, former_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    int descriptor;
    while ((descriptor = ::open("/", O_RDONLY | O_CLOEXEC)) >= 0)
      taken_.push_back(descriptor);
    EXPECT_EQ(errno, EMFILE);
    for (; left > 0; --left) {
      ::close(taken_.back());
      taken_.pop_back();
    }
  }
  ~FewDescriptorsLeft() {
    for (int descriptor : taken_)
      ::close(descriptor);
    ::setrlimit(RLIMIT_NOFILE, &former_);
  }
  FewDescriptorsLeft(const FewDescriptorsLeft &) = delete;
  FewDescriptorsLeft &operator=(const FewDescriptorsLeft &) = delete;

private:
  struct rlimit former_;
  std::vector<int> taken_;
};

// Takes all shares of walks that are to spare.
inline std::vector<NS::DescriptorBudget::Share> takeAllSpare() {
  std::vector<NS::DescriptorBudget::Share> taken;
  while (auto share = NS::DescriptorBudget::ofWalks().takeSpare(1))
    taken.push_back(std::move(share));
  return taken;
}

// Sleeps do not pass any time, but let something happen.
class SleepWatcher final : public NS::Thread {
public:
  std::function<void()> onSleep = [] {};
  int sleeps = 0;

  void sleepForTimeInterval(double) override {
    ++sleeps;
    onSleep();
  }
  bool isMainThread() override { return false; }
  std::vector<std::string> callStackSymbols() override { return {}; }

private:
  NS::ScopedOverride<NS::Thread> override_{*this};
};

} // namespace kwtest
