// The way out of a sandbox, over an invented environment and user database.
#include "Additions/SandboxTildeExpansion.h"
#include "Additions/NSStringAdditions.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Desktop/HomeDirectory.h"
#include "Support/AssertionRecorder.h"
#include "Support/FakeUsers.h"
#include "Support/LogRecorder.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

class SandboxTildeExpansion : public ::testing::Test {
protected:
  kwtest::FakeProcessInfo process;
  kwtest::FakeUserDatabase users;
  NS::ScopedOverride<NS::ProcessInfo> processOverride{process};
  NS::ScopedOverride<NS::UserDatabase> usersOverride{users};
  kw::SandboxTildeExpansion expansion;

  void SetUp() override {
    process.values = {{"HOME", "/container/me"}, {"APP_SANDBOX_CONTAINER_ID", "org.example"}};
    users.current.emplace("/home/me");
    users.others = {{"ada", "/home/ada"}};
  }
};

TEST_F(SandboxTildeExpansion, leadsToTheRealHomeAndNotToTheContainer) {
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("~/Library"), "/home/me/Library");
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("~"), "/home/me");
}

TEST_F(SandboxTildeExpansion, appendsAUsersNameToTheRealHome) {
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("~ada/x"), "/home/meada/x");
}

TEST_F(SandboxTildeExpansion, leavesAPathWithoutALeadingTildeAlone) {
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("/a/~/b"), "/a/~/b");
  EXPECT_EQ(expansion.stringByExpandingTildeInPath(""), "");
}

TEST_F(SandboxTildeExpansion, isThePlatformsOwnOutsideASandbox) {
  process.values.erase("APP_SANDBOX_CONTAINER_ID");
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("~/Library"), "/container/me/Library");
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("~ada/x"), "/home/ada/x");
  EXPECT_EQ(users.currentReadings, 0) << "the record is of no use there";
}

TEST_F(SandboxTildeExpansion, readsTheEnvironmentAndTheRecordOnce) {
  expansion.stringByExpandingTildeInPath("~/a");
  process.values.clear();
  users.current.emplace("/home/other");
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("~/a"), "/home/me/a");
  EXPECT_EQ(process.readings, 1);
  EXPECT_EQ(users.currentReadings, 1);
}

TEST_F(SandboxTildeExpansion, failsAnAssertionWhenTheUserHasNoRecord) {
  users.current.reset();
  kwtest::AssertionRecorder recorder;
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("~/a"), "~/a");
  EXPECT_EQ(recorder.failures,
            (std::vector<kwtest::AssertionFailure>{{"Sources/Additions/NSStringAdditions", "pw"}}));
}

TEST_F(SandboxTildeExpansion, stopsHardWithoutARecordAndRecoversWithOne) {
  users.current.reset();
  kwtest::LogRecorder log;
  try {
    expansion.stringByExpandingTildeInPath("/no/tilde");
    FAIL() << "nothing was raised";
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::InternalInconsistencyException);
    EXPECT_EQ(exception.reason(), "pw");
  }
  users.current.emplace("/home/me");
  EXPECT_EQ(expansion.stringByExpandingTildeInPath("~"), "/home/me");
}

TEST_F(SandboxTildeExpansion, servesManyThreadsFromTheFirstCallOn) {
  std::vector<std::string> results(4);
  std::vector<std::thread> threads;
  for (std::string &result : results)
    threads.emplace_back([&] { result = expansion.stringByExpandingTildeInPath("~/a"); });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(results, std::vector<std::string>(4, "/home/me/a"));
}

} // namespace
