// Forgetting receipts.
#include "Tools/KWPkgutilTask.h"

#include "Foundation/Base/SharedInstance.h"
#include "Support/RecordingTaskRunner.h"

#include <gtest/gtest.h>

namespace {

TEST(PkgutilTask, forgetsThePackageByItsIdentifier) {
  kwtest::RecordingTaskRunner runner;
  NS::ScopedOverride<kw::KWTaskRunner> override(runner);
  EXPECT_TRUE(kw::KWPkgutilTask().removePackageWithID("com.example.pkg"));
  EXPECT_TRUE(kw::KWPkgutilTask().removePackageWithID(""));
  EXPECT_EQ(runner.commandLines(), (std::vector<std::vector<std::string>>{
                                       {"/usr/sbin/pkgutil", "--forget", "com.example.pkg"},
                                       {"/usr/sbin/pkgutil", "--forget", ""}}));
}

TEST(PkgutilTask, succeedsWithStatusZeroOnly) {
  kwtest::RecordingTaskRunner runner;
  NS::ScopedOverride<kw::KWTaskRunner> override(runner);
  for (long long status : {1, 9, -1, 255}) {
    runner.statuses["/usr/sbin/pkgutil"] = status;
    EXPECT_FALSE(kw::KWPkgutilTask().removePackageWithID("com.example.pkg")) << status;
  }
}

TEST(PkgutilTask, runsNothingForNil) {
  kwtest::RecordingTaskRunner runner;
  NS::ScopedOverride<kw::KWTaskRunner> override(runner);
  EXPECT_FALSE(kw::KWPkgutilTask().removePackageWithID(std::nullopt));
  EXPECT_TRUE(runner.runs().empty());
}

} // namespace
