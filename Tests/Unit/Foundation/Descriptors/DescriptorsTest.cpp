// Waits on descriptors.
#include "Foundation/Descriptors/Internal/Descriptors.h"

#include "Support/ForkedChild.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

namespace {

// A process that may open one descriptor may not wait for two.
TEST(Descriptors, countAsReadyWhereTheSystemCannotWait) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              auto [reading, writing] = NS::descriptors::openPipe();
              rlimit limit{1, 1};
              if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
                return "no limit";
              auto ready = NS::descriptors::waitForReading(reading, writing);
              return ready.first && ready.second && !ready.firstHasData ? "" : "not ready";
            }),
            "");
}

} // namespace
