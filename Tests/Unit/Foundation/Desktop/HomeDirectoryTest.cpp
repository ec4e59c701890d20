// Tilde expansion over an invented environment and user database, and once
// over the real ones.
#include "Foundation/Desktop/HomeDirectory.h"

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Processes/ProcessInfo.h"
#include "Support/FakeUsers.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class TildeExpansion : public ::testing::Test {
protected:
  kwtest::FakeProcessInfo process;
  kwtest::FakeUserDatabase users;
  NS::ScopedOverride<NS::ProcessInfo> processOverride{process};
  NS::ScopedOverride<NS::UserDatabase> usersOverride{users};

  void SetUp() override {
    process.values = {{"HOME", "/home/me"}};
    users.current = "/record/me";
    users.others = {{"ada", "/home/ada/"}};
  }
};

TEST_F(TildeExpansion, beginsAtTheHomeOfTheEnvironment) {
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~"), "/home/me");
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~/Library"), "/home/me/Library");
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~/Library/"), "/home/me/Library");
}

TEST_F(TildeExpansion, takesTheRecordWhenTheEnvironmentNamesNoAbsoluteHome) {
  process.values.clear();
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~/x"), "/record/me/x");
  process.values = {{"HOME", "relative"}};
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~/x"), "/record/me/x");
}

TEST_F(TildeExpansion, takesTheRootWhenNothingIsKnown) {
  process.values.clear();
  users.current.reset();
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~/x"), "/x");
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~"), "/");
}

TEST_F(TildeExpansion, takesAHomeOfSlashesForTheRoot) {
  process.values = {{"HOME", "//"}};
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~"), "/");
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~/x"), "/x");
}

TEST_F(TildeExpansion, knowsOtherUsers) {
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~ada"), "/home/ada");
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~ada/x"), "/home/ada/x");
}

TEST_F(TildeExpansion, leavesUnknownUsersAlone) {
  EXPECT_EQ(NS::stringByExpandingTildeInPath("~nobody-here/x/"), "~nobody-here/x");
  EXPECT_EQ(NS::stringByExpandingTildeInPath(std::string_view("~ada\0/x", 7)),
            std::string("~ada\0/x", 7));
}

TEST_F(TildeExpansion, leavesOtherPathsUnchanged) {
  for (const char *path : {"", "/a/~/b/", "a~", "/"})
    EXPECT_EQ(NS::stringByExpandingTildeInPath(path), path);
}

TEST(UserDatabase, knowsRootAndNoInventedUser) {
  auto &users = NS::UserDatabase::shared();
  EXPECT_EQ(users.homeDirectoryForUser("root"), "/root");
  EXPECT_EQ(users.homeDirectoryForUser("no-such-user-here"), std::nullopt);
  EXPECT_TRUE(users.homeDirectoryOfCurrentUser().has_value());
}

// The home folder of a user whose record has a comment of this length.
std::string homeWithCommentOf(std::size_t length) {
  kwtest::ScratchFolder scratch;
  std::string records = scratch.file("passwd", "someone:x:12345:12345:" + std::string(length, 'x') +
                                                   ":/home/someone:/bin/sh\n");
  return kwtest::withPrivateMounts([&]() -> std::string {
    if (!kwtest::bindMount(records, "/etc/passwd"))
      return "no records of its own";
    return NS::UserDatabase::shared().homeDirectoryForUser("someone").value_or("none");
  });
}

TEST(UserDatabase, readsRecordsOfUpToOneMiB) {
  KW_REQUIRE_ROOT();
  EXPECT_EQ(homeWithCommentOf(10), "/home/someone");
  EXPECT_EQ(homeWithCommentOf(3000), "/home/someone");
  EXPECT_EQ(homeWithCommentOf(1'000'000), "/home/someone");
  EXPECT_EQ(homeWithCommentOf(1'500'000), "none");
}

} // namespace
