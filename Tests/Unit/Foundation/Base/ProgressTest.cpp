// The progress of a request, and whose thread it is.
#include "Foundation/Base/Progress.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

using NS::Progress;

TEST(Progress, countsNothingAndCannotBeCancelledOnAThreadWithoutOne) {
  Progress &inert = Progress::current();
  inert.cancel();
  inert.countItem(7);
  inert.setPath("/x");
  Progress::Snapshot taken = inert.snapshot();
  EXPECT_FALSE(inert.isCancelled());
  EXPECT_FALSE(inert.wantsPath());
  EXPECT_EQ(taken.items, 0u);
  EXPECT_EQ(taken.bytes, 0u);
  EXPECT_EQ(taken.path, "");
}

TEST(Progress, isThatOfTheInnermostScope) {
  Progress outer;
  Progress inner;
  Progress *inert = &Progress::current();
  {
    Progress::Scope first(outer);
    {
      Progress::Scope second(inner);
      EXPECT_EQ(&Progress::current(), &inner);
    }
    EXPECT_EQ(&Progress::current(), &outer);
  }
  EXPECT_EQ(&Progress::current(), inert);
}

TEST(Progress, belongsToItsThreadAlone) {
  Progress mine;
  Progress::Scope scope(mine);
  Progress *theirs = &mine;
  std::thread([&] { theirs = &Progress::current(); }).join();
  EXPECT_NE(theirs, &mine);
}

TEST(Progress, countsTheWorkOfSeveralThreads) {
  Progress progress;
  std::vector<std::thread> helpers;
  for (int helper = 0; helper < 4; ++helper)
    helpers.emplace_back([&] {
      Progress::Scope scope(progress);
      for (int item = 0; item < 1000; ++item)
        Progress::current().countItem(3);
    });
  for (std::thread &helper : helpers)
    helper.join();
  EXPECT_EQ(progress.snapshot().items, 4000u);
  EXPECT_EQ(progress.snapshot().bytes, 12000u);
}

TEST(Progress, isCancelledForGoodOnEveryThread) {
  Progress progress;
  EXPECT_FALSE(progress.isCancelled());
  std::thread([&] { progress.cancel(); }).join();
  EXPECT_TRUE(progress.isCancelled());
}

TEST(Progress, wantsAPathOncePerSnapshot) {
  Progress progress;
  EXPECT_FALSE(progress.wantsPath());
  EXPECT_EQ(progress.snapshot().path, "");
  EXPECT_TRUE(progress.wantsPath());
  progress.setPath("/a");
  EXPECT_FALSE(progress.wantsPath());
  EXPECT_EQ(progress.snapshot().path, "/a");
  EXPECT_TRUE(progress.wantsPath());
}

TEST(Progress, keepsTheEndOfAPathThatIsTooLong) {
  Progress progress;
  std::string longest = "/" + std::string(Progress::longestPath - 1, 'x');
  progress.setPath(longest);
  EXPECT_EQ(progress.snapshot().path, longest);
  progress.setPath(std::string(Progress::longestPath, 'x') + "/name");
  std::string kept = progress.snapshot().path;
  EXPECT_EQ(kept.size(), Progress::longestPath);
  EXPECT_EQ(kept.substr(kept.size() - 6), "x/name");
}

} // namespace
