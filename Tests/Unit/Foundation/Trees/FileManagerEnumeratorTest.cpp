// Deep walks by path and by URL.
#include "Foundation/Trees/FileManager.h"

#include "Support/ForkedChild.h"
#include "Support/LogRecorder.h"
#include "Support/MissingCall.h"
#include "Support/PrivateMounts.h"
#include "Support/RandomTree.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector<std::string> pathsBelow(const std::string &root) {
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtPath(root);
  std::vector<std::string> paths;
  while (auto path = enumerator->nextObject())
    paths.push_back(*path);
  EXPECT_FALSE(enumerator->nextObject());
  return paths;
}

std::vector<std::string> urlsBelow(const ScratchFolder &scratch,
                                   NS::DirectoryEnumerationOptions options) {
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtURL(
      NS::URL::fileURLWithPath(scratch.path()), options);
  std::vector<std::string> paths;
  while (auto url = enumerator->nextObject())
    paths.push_back(url->path().substr(scratch.path().size()) +
                    (url->hasDirectoryPath() ? "/" : ""));
  return paths;
}

TEST(Enumerator, givesEveryItemOnceEachFolderBeforeItsContents) {
  ScratchFolder scratch;
  kwtest::RandomTree tree(scratch.path(), 11, 400);
  std::vector<std::string> wanted;
  for (const auto &entry : fs::recursive_directory_iterator(scratch.path()))
    wanted.push_back(entry.path().string().substr(scratch.path().size() + 1));
  std::vector<std::string> got = pathsBelow(scratch.path());
  for (auto path = got.begin(); path != got.end(); ++path) {
    std::size_t slash = path->rfind('/');
    if (slash != std::string::npos) {
      EXPECT_NE(std::find(got.begin(), path, path->substr(0, slash)), path) << *path;
    }
  }
  EXPECT_THAT(got, testing::UnorderedElementsAreArray(wanted));
}

TEST(Enumerator, tellsOfFoldersLeftOutForLackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("folder/inner/innermost"));
  bool hasListedAll = false;
  for (std::size_t left = 0; left < 10; ++left) {
    kwtest::SleepWatcher sleeps;
    kwtest::LogRecorder log;
    std::vector<std::string> paths;
    {
      kwtest::FewDescriptorsLeft scarcity(left);
      paths = pathsBelow(scratch.path());
    }
    hasListedAll = log.lines().empty();
    EXPECT_TRUE(paths.size() == 3 || !hasListedAll) << left;
    for (const std::string &line : log.lines())
      EXPECT_TRUE(line.starts_with(scratch.path()) &&
                  line.ends_with(" is left out of a list: Too many open files"))
          << line;
  }
  EXPECT_TRUE(hasListedAll) << "of ten descriptors";
}

TEST(Enumerator, leavesOutNoFileForLackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  scratch.file("one", "");
  scratch.file("other", "");
  kwtest::LogRecorder log;
  kwtest::SleepWatcher sleeps;
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtPath(scratch.path());
  kwtest::FewDescriptorsLeft scarcity;
  EXPECT_TRUE(enumerator->nextObject());
  EXPECT_TRUE(enumerator->nextObject());
  EXPECT_FALSE(enumerator->nextObject());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Enumerator, tellsOfAFolderThatCannotBeListed) {
  ScratchFolder scratch;
  scratch.file("item", "");
  EXPECT_EQ(kwtest::lineWithoutListings(
                [&] { return pathsBelow(scratch.path()).empty() ? "" : "an item was listed"; }),
            scratch.path() + " is listed only in part: Input/output error");
}

TEST(Enumerator, doesNotFillTheLogWithWhatItLeavesOut) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  kwtest::LogRecorder log;
  kwtest::SleepWatcher sleeps;
  for (int folder = 0; folder < 100; ++folder)
    fs::create_directory(scratch.path(std::to_string(folder)));
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtPath(scratch.path());
  kwtest::FewDescriptorsLeft scarcity;
  int items = 0;
  while (enumerator->nextObject())
    ++items;
  EXPECT_EQ(items, 100);
  ASSERT_EQ(log.lines().size(), 17u);
  EXPECT_EQ(log.lines().back(),
            "The log has nothing more of the walk through " + scratch.path() + ".");
}

// Twenty branches, each too deep for all of its folders to be held open.
TEST(Enumerator, goesOnWithTheOtherBranchesWhenAFolderIsMovedAway) {
  ScratchFolder scratch;
  kwtest::LogRecorder log;
  std::string deep = "/1/2/3/4/5/6/7/8";
  for (int branch = 10; branch < 30; ++branch) {
    std::string folder = "root/" + std::to_string(branch);
    fs::create_directories(scratch.path(folder + deep));
    scratch.file(folder + deep + "/item", "");
  }
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtPath(scratch.path("root"));
  std::multiset<std::string> items;
  while (auto path = enumerator->nextObject()) {
    items.insert(*path);
    if (items.size() == 15) // deep in the second branch
      fs::rename(scratch.path("root/" + path->substr(0, 2) + "/1"), scratch.path("elsewhere"));
  }
  EXPECT_EQ(items.size(), 20u * 10);
  for (const std::string &item : items)
    EXPECT_EQ(items.count(item), 1u) << item;
  EXPECT_THAT(log.lines(), IsEmpty()) << "nothing was left out";
}

TEST(Enumerator, tellsOfAFolderThatItCannotFindAgainAndGoesOn) {
  ScratchFolder scratch;
  kwtest::LogRecorder log;
  std::string deep = "/1/2/3/4/5/6/7/8";
  for (const char *name : {"a", "b"})
    fs::create_directories(scratch.path("root/" + (name + deep)));
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtPath(scratch.path("root"));
  std::string first; // of the two
  std::set<std::string> items;
  while (auto path = enumerator->nextObject()) {
    items.insert(*path);
    if (first.empty() && path->ends_with("/8")) {
      first = path->substr(0, 1);
      fs::rename(scratch.path("root/" + first + "/1"), scratch.path("one"));
      fs::rename(scratch.path("root/" + first), scratch.path("other"));
    }
  }
  EXPECT_EQ(items.size(), 2u * 9);
  for (const char *name : {"a", "b"})
    EXPECT_TRUE(items.contains(name) && items.contains(name + deep)) << name;
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{scratch.path("root/" + first) +
                                     " was moved; the rest of it is left out of a list."});
}

// A stranger can have a whole deep tree lost at once: a line for each folder would
// fill the log, and take the square of the depth.
TEST(Enumerator, tellsOnlyOfTheUppermostOfTheFoldersThatItCannotFindAgain) {
  ScratchFolder scratch;
  kwtest::LogRecorder log;
  fs::create_directories(scratch.path("root/a/1/2/3/4/5/6/7/8/9/10"));
  scratch.file("root/x", "");
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtPath(scratch.path("root"));
  std::set<std::string> items;
  while (auto path = enumerator->nextObject()) {
    items.insert(*path);
    if (path->ends_with("/10")) {
      fs::rename(scratch.path("root/a/1/2/3"), scratch.path("three"));
      fs::rename(scratch.path("root/a"), scratch.path("other"));
    }
  }
  EXPECT_TRUE(items.contains("x"));
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{scratch.path("root/a") +
                                     " was moved; the rest of it is left out of a list."});
}

TEST(Enumerator, countsLevelsFromOne) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("a/b"));
  scratch.file("a/b/c", "");
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtPath(scratch.path());
  EXPECT_EQ(enumerator->level(), 0u);
  for (std::uint64_t level = 1; level <= 3; ++level) {
    ASSERT_TRUE(enumerator->nextObject());
    EXPECT_EQ(enumerator->level(), level);
  }
  EXPECT_FALSE(enumerator->nextObject());
}

TEST(Enumerator, skipsTheDescendantsOfTheItemGivenLast) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("a/inner"));
  fs::create_directories(scratch.path("b/inner"));
  auto enumerator = NS::FileManager::defaultManager().enumeratorAtPath(scratch.path());
  std::vector<std::string> paths;
  while (auto path = enumerator->nextObject()) {
    paths.push_back(*path);
    if (*path == "a")
      enumerator->skipDescendants();
  }
  EXPECT_THAT(paths, UnorderedElementsAre("a", "b", "b/inner"));
}

TEST(Enumerator, followsTheRootButNoLinkBeneathIt) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("real/sub"));
  fs::create_directory_symlink("..", scratch.path("real/loop"));
  fs::create_directory_symlink("real", scratch.path("link"));
  EXPECT_THAT(pathsBelow(scratch.path("link")), UnorderedElementsAre("sub", "loop"));
}

TEST(Enumerator, givesNothingBelowAFileOrAMissingPath) {
  ScratchFolder scratch;
  EXPECT_THAT(pathsBelow(scratch.file("file", "")), IsEmpty());
  EXPECT_THAT(pathsBelow(scratch.path("missing")), IsEmpty());
  EXPECT_THAT(pathsBelow(""), IsEmpty());
}

TEST(Enumerator, honoursItsOptions) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path(".hidden/inner"));
  fs::create_directories(scratch.path("shown/.inner"));
  scratch.file("shown/file", "");
  EXPECT_THAT(urlsBelow(scratch, NS::DirectoryEnumerationNone),
              UnorderedElementsAre("/.hidden/", "/.hidden/inner/", "/shown/", "/shown/.inner/",
                                   "/shown/file"));
  EXPECT_THAT(urlsBelow(scratch, NS::DirectoryEnumerationSkipsHiddenFiles),
              UnorderedElementsAre("/shown/", "/shown/file"));
  EXPECT_THAT(urlsBelow(scratch, NS::DirectoryEnumerationSkipsSubdirectoryDescendants),
              UnorderedElementsAre("/.hidden/", "/shown/"));
}

TEST(Enumerator, passesOverAFolderThatCannotBeRead) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("closed/inner"));
  fs::create_directory(scratch.path("open"));
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(scratch.path("closed"), fs::perms(0700));
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              std::vector<std::string> paths = pathsBelow(scratch.path());
              std::sort(paths.begin(), paths.end());
              return paths == std::vector<std::string>{"closed", "open"} ? "" : "other items";
            }),
            "");
}

TEST(Enumerator, endsWhereAFolderIsMountedInItself) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("root/mounted"));
  fs::create_directories(scratch.path("root/sub"));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("root"), scratch.path("root/mounted")))
                return "no mount";
              std::vector<std::string> paths = pathsBelow(scratch.path("root"));
              std::sort(paths.begin(), paths.end());
              return paths == std::vector<std::string>{"mounted", "sub"}
                         ? ""
                         : std::to_string(paths.size()) + " items";
            }),
            "");
}

TEST(Enumerator, readsOnWhereItWasInFoldersLargerThanOneReading) {
  ScratchFolder scratch;
  // Deeper than the folders that are kept open, with many siblings on the way,
  // so that upper folders are opened again and read on from their middle.
  for (int number = 0; number < 3000; ++number)
    scratch.file(std::string("a-file-with-a-rather-long-name-") + std::to_string(number), "");
  for (int number = 0; number < 20; ++number)
    fs::create_directories(
        scratch.path(std::string("d") + std::to_string(number) + "/1/2/3/4/5/6/7/8/9/10"));
  EXPECT_EQ(pathsBelow(scratch.path()).size(), 3000u + 20 * 11);
}

TEST(Enumerator, walksTreesDeeperThanAnyPathWithFewDescriptors) {
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (kwtest::isRoot() && kwtest::enterMountNamespace())
                kwtest::mountMemory(scratch.path());
              kwtest::DeepChain chain(scratch.path(), 20'000);
              kwtest::limitDescriptors(32);
              std::size_t count = pathsBelow(scratch.path()).size();
              return count == 20'000 ? "" : std::to_string(count) + " items";
            }),
            "");
}

} // namespace
