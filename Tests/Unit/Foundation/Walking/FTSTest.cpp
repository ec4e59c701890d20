// The walk against the C library's on random trees, and everything in which
// it must be better: depth, descriptors, memory and trees that change.
#include "Foundation/Walking/FTS.h"

#include "Support/FolderWatch.h"
#include "Support/ForkedChild.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"
#include "Support/WalkSequence.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kwtest::DeepChain;
using kwtest::inChildWithoutRights;
using kwtest::inForkedChild;
using kwtest::openDescriptorCount;
using kwtest::ours;
using kwtest::quickFolder;
using kwtest::RandomTree;
using kwtest::ScratchFolder;
using kwtest::theirs;
using NS::FTSInfo;

constexpr int physical = NS::FTSOption::PHYSICAL | NS::FTSOption::NOCHDIR;

std::string numbered(std::string stem, int number) {
  return stem.append(std::to_string(number));
}

std::vector<FTSInfo> infos(NS::FTSStream &stream) {
  std::vector<FTSInfo> seen;
  while (NS::FTSEntry *entry = stream.read())
    seen.push_back(entry->info);
  return seen;
}

TEST(FTS, givesTheSequenceOfTheCLibrary) {
  for (std::uint32_t seed = 1; seed <= 25; ++seed) {
    ScratchFolder scratch(quickFolder());
    RandomTree tree(scratch.path(), seed, 150);
    EXPECT_EQ(ours(scratch.path(), physical), theirs(scratch.path(), physical)) << seed;
    EXPECT_EQ(ours(scratch.path(), physical, 3), theirs(scratch.path(), physical, 3)) << seed;
  }
}

TEST(FTS, givesTheSequenceOfTheCLibraryWithoutStat) {
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    ScratchFolder scratch(quickFolder());
    RandomTree tree(scratch.path(), seed, 150);
    for (int options :
         {physical | NS::FTSOption::NOSTAT, physical | NS::FTSOption::NOSTAT | NS::FTSOption::XDEV})
      EXPECT_EQ(ours(scratch.path(), options, 4), theirs(scratch.path(), options, 4)) << seed;
  }
}

TEST(FTS, givesTheSequenceOfTheCLibraryOnADisk) {
  ScratchFolder scratch;
  RandomTree tree(scratch.path(), 77, 300);
  EXPECT_EQ(ours(scratch.path(), physical), theirs(scratch.path(), physical));
}

TEST(FTS, namesRootsAsTheCLibraryDoes) {
  ScratchFolder scratch;
  scratch.file("file", "content");
  std::filesystem::create_directory(scratch.path("folder"));
  std::filesystem::create_directories(scratch.path("folder/inner/lowest"));
  std::filesystem::create_directory_symlink("folder", scratch.path("link"));
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  for (const char *name : {"file", "folder", "folder/", "folder//", "link", "link/", "fifo",
                           "missing", "file/below", "folder/.", "folder/.."}) {
    std::string root = scratch.path(name);
    EXPECT_EQ(ours(root, physical), theirs(root, physical)) << name;
  }
  std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(scratch.path());
  for (const char *root : {"folder", ".", "./folder", "file"})
    EXPECT_EQ(ours(root, physical), theirs(root, physical)) << root;
  std::filesystem::current_path(before);
}

TEST(FTS, doesNotDoubleTheSlashOfTheRootFolder) {
  auto stream = NS::FTS::shared().open("/", physical);
  NS::FTSEntry *root = stream->read();
  EXPECT_EQ(root->path, "/");
  EXPECT_EQ(root->name, "/");
  NS::FTSEntry *child = stream->read();
  EXPECT_EQ(child->path, "/" + std::string(child->name));
}

TEST(FTS, refusesAnEmptyPath) {
  EXPECT_EQ(NS::FTS::shared().open("", physical), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST(FTS, refusesAPathWithANulInside) {
  EXPECT_EQ(NS::FTS::shared().open(std::string("/tmp\0x", 6), physical), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

TEST(FTS, refusesOptionsThatItDoesNotServe) {
  constexpr int logical = 0x002;
  constexpr int seeDot = 0x020;
  EXPECT_EQ(NS::FTS::shared().open("/tmp", logical), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(NS::FTS::shared().open("/tmp", physical | seeDot), nullptr);
}

TEST(FTS, sumsThroughTheParentsUpToThePlaceHolderAboveTheRoot) {
  ScratchFolder scratch;
  std::filesystem::create_directories(scratch.path("a/b/c"));
  scratch.file("a/b/c/file", "");
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  std::int64_t total = 0;
  while (NS::FTSEntry *entry = stream->read()) {
    entry->parent->number += entry->info == FTSInfo::DP ? entry->number : 1;
    total = entry->parent->number;
    EXPECT_EQ(entry->parent->level, entry->level - 1);
  }
  EXPECT_EQ(total, 5);
}

TEST(FTS, givesARootThatIsAFileAParentToo) {
  ScratchFolder scratch;
  auto stream = NS::FTS::shared().open(scratch.file("file", ""), physical);
  EXPECT_EQ(stream->read()->parent->level, -1);
}

TEST(FTS, givesEachItemWithTheNumberZero) {
  ScratchFolder scratch;
  for (const char *name : {"a", "b", "c"}) {
    std::filesystem::create_directory(scratch.path(name));
    for (const char *file : {"/x", "/y", "/z"})
      scratch.file(std::string(name) + file, "");
  }
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  while (NS::FTSEntry *entry = stream->read()) {
    EXPECT_EQ(entry->number, entry->info == FTSInfo::DP ? 1 : 0) << entry->path;
    entry->number = 1;
  }
}

TEST(FTS, endsThePathOfTheLastEntryWithANul) {
  ScratchFolder scratch(quickFolder());
  RandomTree tree(scratch.path(), 5, 100);
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  while (NS::FTSEntry *entry = stream->read())
    ASSERT_EQ(std::string(entry->path.data()), entry->path);
}

TEST(FTS, passesOverAllOfASkippedRoot) {
  ScratchFolder scratch;
  std::filesystem::create_directory(scratch.path("folder"));
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  stream->set(*stream->read(), NS::FTSInstruction::SKIP);
  EXPECT_EQ(infos(*stream), std::vector{FTSInfo::DP});
}

TEST(FTS, skipsNoFolderForAnEntryReadBefore) {
  ScratchFolder scratch;
  std::filesystem::create_directories(scratch.path("folder/inner"));
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  NS::FTSEntry *root = stream->read();
  ASSERT_EQ(stream->read()->info, FTSInfo::D);
  stream->set(*root, NS::FTSInstruction::SKIP);
  EXPECT_EQ(infos(*stream), (std::vector{FTSInfo::D, FTSInfo::DP, FTSInfo::DP, FTSInfo::DP}));
}

TEST(FTS, walksFarDeeperThanAnyPathReachesWithThirtyTwoDescriptors) {
  constexpr int depth = 40000;
  ScratchFolder scratch(quickFolder());
  DeepChain chain(scratch.path(), depth);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              rlimit limit{32, 32};
              ::setrlimit(RLIMIT_NOFILE, &limit);
              std::size_t before = openDescriptorCount();
              auto stream = NS::FTS::shared().open(scratch.path(), physical);
              int folders = 0;
              int left = 0;
              std::size_t longest = 0;
              while (NS::FTSEntry *entry = stream->read()) {
                longest = std::max(longest, entry->path.size());
                folders += entry->info == FTSInfo::D;
                left += entry->info == FTSInfo::DP;
                if (entry->parent->level >= 0 && !entry->path.starts_with(entry->parent->path))
                  return "a parent's path does not lead to " + std::string(entry->path);
              }
              if (folders != depth + 1 || left != depth + 1)
                return std::to_string(folders) + " folders, left " + std::to_string(left);
              if (longest != scratch.path().size() + 2 * depth)
                return "longest path " + std::to_string(longest);
              stream.reset();
              return openDescriptorCount() == before ? "" : "descriptors left open";
            }),
            "");
}

TEST(FTS, goesOnWithSiblingsOnTheWayBackFromTheDeep) {
  ScratchFolder scratch;
  std::string path = scratch.path();
  for (int level = 0; level < 60; ++level) {
    for (int sibling = 0; sibling < 3; ++sibling)
      std::filesystem::create_directories(numbered(path + "/s", sibling) + "/inner");
    path += "/s1";
  }
  EXPECT_EQ(ours(scratch.path(), physical), theirs(scratch.path(), physical));
}

TEST(FTS, managesWithTheFewDescriptorsThatAreLeft) {
  ScratchFolder scratch;
  std::string path = scratch.path();
  for (int level = 0; level < 20; ++level)
    std::filesystem::create_directories(path += "/d");
  std::string expected = theirs(scratch.path(), physical);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              rlim_t free = 4;
              rlimit limit{openDescriptorCount() + free, openDescriptorCount() + free};
              // Numbers are given from the lowest free one, so this leaves
              // about that many.
              ::setrlimit(RLIMIT_NOFILE, &limit);
              return ours(scratch.path(), physical) == expected ? "" : "another sequence";
            }),
            "");
}

TEST(FTS, leavesNoDescriptorOpenWhenClosedEarly) {
  ScratchFolder scratch;
  std::filesystem::create_directories(scratch.path("a/b/c/d/e"));
  std::size_t before = openDescriptorCount();
  auto closed = NS::FTS::shared().open(scratch.path(), physical);
  auto dropped = NS::FTS::shared().open(scratch.path(), physical);
  for (int step = 0; step < 4; ++step) {
    ASSERT_NE(closed->read(), nullptr);
    ASSERT_NE(dropped->read(), nullptr);
  }
  EXPECT_GT(openDescriptorCount(), before);
  closed->close();
  closed->close();
  EXPECT_EQ(closed->read(), nullptr);
  dropped.reset();
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST(FTS, staysNullAtTheEnd) {
  ScratchFolder scratch;
  auto stream = NS::FTS::shared().open(scratch.file("file", ""), physical);
  EXPECT_NE(stream->read(), nullptr);
  EXPECT_EQ(stream->read(), nullptr);
  EXPECT_EQ(stream->read(), nullptr);
}

// Entries of one batch whose names were listed before they went.
TEST(FTS, givesNSForAnEntryThatVanishedSinceItsFolderWasListed) {
  ScratchFolder scratch;
  for (int index = 0; index < 10; ++index)
    scratch.file(numbered("f", index), "");
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  stream->read();
  ASSERT_EQ(stream->read()->info, FTSInfo::F);
  for (int index = 0; index < 10; ++index)
    std::filesystem::remove(scratch.path(numbered("f", index)));
  for (int index = 1; index < 10; ++index) {
    NS::FTSEntry *entry = stream->read();
    EXPECT_EQ(entry->info, FTSInfo::NS);
    EXPECT_EQ(entry->errnum, ENOENT);
  }
  EXPECT_EQ(stream->read()->info, FTSInfo::DP);
}

TEST(FTS, givesDNRForAFolderThatVanishedBeforeItWasOpened) {
  ScratchFolder scratch;
  std::filesystem::create_directory(scratch.path("gone"));
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  stream->read();
  ASSERT_EQ(stream->read()->info, FTSInfo::D);
  std::filesystem::remove(scratch.path("gone"));
  NS::FTSEntry *second = stream->read();
  EXPECT_EQ(second->info, FTSInfo::DNR);
  EXPECT_EQ(second->errnum, ENOENT);
  EXPECT_EQ(infos(*stream), std::vector{FTSInfo::DP});
}

TEST(FTS, isNotLedOutsideByAFolderSwappedForALink) {
  ScratchFolder scratch;
  ScratchFolder outside;
  outside.file("secret", "");
  std::filesystem::create_directory(scratch.path("folder"));
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  stream->read();
  ASSERT_EQ(stream->read()->info, FTSInfo::D);
  std::filesystem::remove(scratch.path("folder"));
  std::filesystem::create_directory_symlink(outside.path(), scratch.path("folder"));
  EXPECT_EQ(stream->read()->info, FTSInfo::DNR);
  EXPECT_EQ(infos(*stream), std::vector{FTSInfo::DP});
}

// Makes folders in one another, and gives the path of each.
std::vector<std::string> ladder(const ScratchFolder &scratch, int depth) {
  std::vector<std::string> paths;
  std::string path = scratch.path("top");
  for (int level = 0; level < depth; ++level) {
    std::filesystem::create_directory(path);
    paths.push_back(path);
    path += "/d";
  }
  return paths;
}

// Reads on until the entry of the path comes.
void readUpTo(NS::FTSStream &stream, const std::string &path) {
  while (NS::FTSEntry *entry = stream.read())
    if (entry->path == path)
      return;
}

TEST(FTS, findsItsWayBackWhenAFolderIsMovedAwayAroundIt) {
  ScratchFolder scratch;
  std::vector<std::string> paths = ladder(scratch, 50);
  auto stream = NS::FTS::shared().open(paths.front(), physical);
  readUpTo(*stream, paths.back());
  std::filesystem::rename(paths[10], scratch.path("elsewhere"));
  EXPECT_EQ(infos(*stream), std::vector(50, FTSInfo::DP));
}

TEST(FTS, givesERRForFoldersThatItCannotFindAgain) {
  ScratchFolder scratch;
  std::vector<std::string> paths = ladder(scratch, 60);
  auto stream = NS::FTS::shared().open(paths.front(), physical);
  readUpTo(*stream, paths.back());
  // The way up from 20 is cut, and so is the way down to 19.
  std::filesystem::rename(paths[20], scratch.path("lower"));
  std::filesystem::rename(paths[10], scratch.path("upper"));
  std::vector<FTSInfo> expected(40, FTSInfo::DP);
  expected.insert(expected.end(), 10, FTSInfo::ERR);
  expected.insert(expected.end(), 10, FTSInfo::DP);
  std::size_t before = openDescriptorCount();
  EXPECT_EQ(infos(*stream), expected);
  EXPECT_LE(openDescriptorCount(), before);
}

// Such a folder has items that the walk has listed and not returned yet.
TEST(FTS, givesNoMoreItemsOfAFolderThatItCannotFindAgain) {
  ScratchFolder scratch(quickFolder());
  std::vector<std::string> paths{scratch.path("top")};
  for (int level = 1; level < 60; ++level)
    paths.push_back(paths.back() + "/d");
  for (const std::string &path : paths) {
    std::filesystem::create_directory(path);
    // Names of which some are listed after the folder's.
    for (const char *name : {"/a", "/b", "/c", "/d", "/e", "/f", "/g"})
      std::filesystem::create_directory(path + name);
  }
  auto stream = NS::FTS::shared().open(paths.front(), physical);
  readUpTo(*stream, paths.back());
  std::filesystem::rename(paths[20], scratch.path("lower"));
  std::filesystem::rename(paths[10], scratch.path("upper"));
  std::vector<int> errors;
  while (NS::FTSEntry *entry = stream->read()) {
    EXPECT_NE(entry->info, FTSInfo::NS) << entry->path;
    if (entry->info == FTSInfo::ERR)
      errors.push_back(entry->errnum);
  }
  EXPECT_EQ(errors, std::vector(10, ENOENT));
}

// It is no longer an ancestor then, though it has the level of the first visit.
TEST(FTS, entersAFolderOnceMoreThatIsMovedOnAfterItsVisit) {
  for (int depth : {1, 31, 40}) {
    ScratchFolder scratch;
    std::string a = ladder(scratch, depth).back() + "/a", b = a;
    b.back() = 'b';
    std::filesystem::create_directory(a);
    std::filesystem::create_directory(b);
    auto stream = NS::FTS::shared().open(scratch.path("top"), physical);
    NS::FTSEntry *first = stream->read();
    while (first->level < depth)
      first = stream->read();
    if (first->name == "b")
      a.swap(b);
    std::filesystem::create_directory(a + "/moved");
    EXPECT_EQ(stream->read()->path, a + "/moved");
    EXPECT_EQ(stream->read()->info, FTSInfo::DP);
    std::filesystem::rename(a + "/moved", b + "/moved");
    std::vector<FTSInfo> expected{FTSInfo::DP, FTSInfo::D, FTSInfo::D};
    expected.resize(5 + static_cast<std::size_t>(depth), FTSInfo::DP);
    EXPECT_EQ(infos(*stream), expected) << depth;
  }
}

// A stranger can have nearly all folders of a deep tree lost. To look for each of
// them from the root would take the square of the depth.
TEST(FTS, looksOnceForAllFoldersThatOneMoveHasLost) {
  ScratchFolder scratch;
  std::vector<std::string> paths = ladder(scratch, 120);
  auto stream = NS::FTS::shared().open(paths.front(), physical);
  readUpTo(*stream, paths.back());
  std::filesystem::rename(paths[100], scratch.path("lower"));
  std::filesystem::rename(paths[10], scratch.path("upper"));
  kwtest::FolderWatch opened(paths.front(), IN_OPEN);
  std::vector<FTSInfo> seen = infos(*stream);
  EXPECT_EQ(std::count(seen.begin(), seen.end(), FTSInfo::ERR), 90);
  EXPECT_EQ(opened.count(), 2) << "in vain for those, then for the lowest that is left";
}

TEST(FTS, givesDNRForAFolderThatMayNotBeRead) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root to become somebody else";
  ScratchFolder scratch;
  std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
  std::filesystem::create_directories(scratch.path("closed/inner"));
  std::filesystem::permissions(scratch.path("closed"), std::filesystem::perms(0700));
  std::filesystem::create_directories(scratch.path("listed/inner"));
  std::filesystem::permissions(scratch.path("listed"), std::filesystem::perms(0744));
  EXPECT_EQ(inChildWithoutRights([&]() -> std::string {
              std::string mine = ours(scratch.path(), physical);
              if (mine.find("4 1 " + scratch.path("closed") + " closed 13 ") == std::string::npos ||
                  mine.find("10 2 " + scratch.path("listed/inner") + " inner 13 ") ==
                      std::string::npos)
                return "not as expected: " + mine;
              return mine == theirs(scratch.path(), physical) ? "" : "another sequence: " + mine;
            }),
            "");
}

TEST(FTS, findsItsWayBackFromAFolderThatMayNotBeSearched) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root to become somebody else";
  ScratchFolder scratch;
  std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
  std::vector<std::string> paths = ladder(scratch, 50);
  std::filesystem::permissions(paths[20], std::filesystem::perms(0744));
  EXPECT_EQ(inChildWithoutRights([&]() -> std::string {
              std::string mine = ours(paths.front(), physical);
              return mine == theirs(paths.front(), physical) ? "" : "another sequence: " + mine;
            }),
            "");
}

TEST(FTS, givesDCForAFolderThatIsItsOwnAncestor) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root to mount";
  for (int depth : {1, 31, 32, 33, 34, 60}) {
    ScratchFolder scratch;
    std::vector<std::string> paths = ladder(scratch, depth);
    std::string end = paths.back() + "/cycle";
    std::filesystem::create_directory(end);
    EXPECT_EQ(inForkedChild([&]() -> std::string {
                if (!kwtest::enterMountNamespace() ||
                    ::mount(paths.back().c_str(), end.c_str(), nullptr, MS_BIND, nullptr) != 0)
                  return "no mount";
                std::string mine = ours(paths.front(), physical);
                if (mine.find("2 " + std::to_string(depth) + " " + end + " cycle 0 ") ==
                    std::string::npos)
                  return "no cycle seen: " + mine;
                return mine == theirs(paths.front(), physical) ? "" : "another sequence: " + mine;
              }),
              "");
  }
}

TEST(FTS, staysOnItsVolumeWhenAsked) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root to mount";
  ScratchFolder scratch;
  std::filesystem::create_directories(scratch.path("volume"));
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              if (!kwtest::enterMountNamespace() ||
                  ::mount("none", scratch.path("volume").c_str(), "tmpfs", 0, nullptr) != 0)
                return "no mount";
              scratch.file("volume/inside", "");
              std::string mine = ours(scratch.path(), physical | NS::FTSOption::XDEV);
              if (mine.find("volume/inside") != std::string::npos)
                return "went inside: " + mine;
              if (mine != theirs(scratch.path(), physical | NS::FTSOption::XDEV))
                return "another sequence: " + mine;
              return ours(scratch.path(), physical).find("volume/inside") != std::string::npos
                         ? ""
                         : "did not go inside without the option";
            }),
            "");
}

// Kilobytes of address space in use at most so far.
long peakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

TEST(FTS, needsNoMoreMemoryForManyEntriesThanForFew) {
  constexpr int entries = 100000;
  constexpr long allowance = 4096;
  ScratchFolder scratch(quickFolder());
  for (int index = 0; index < entries; ++index)
    ASSERT_EQ(::mknod(scratch.path(numbered("entry", index)).c_str(), S_IFREG, 0), 0);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              auto stream = NS::FTS::shared().open(scratch.path(), physical);
              stream->read();
              stream->read();
              long before = peakMemory();
              int count = 1;
              while (stream->read()->info != FTSInfo::DP)
                ++count;
              if (count != entries)
                return std::to_string(count) + " entries";
              long more = peakMemory() - before;
              return more <= allowance ? "" : "took " + std::to_string(more) + " KB";
            }),
            "");
}

// Frames forget unread records when many long batches lie above one another.
TEST(FTS, readsForgottenRecordsAgainWhereItLeftOff) {
  constexpr int depth = 80;
  constexpr int siblings = 270;
  ScratchFolder scratch(quickFolder());
  std::string path = scratch.path();
  for (int level = 0; level < depth; ++level) {
    for (int sibling = 0; sibling < siblings; ++sibling) {
      std::string name = numbered(std::string(240, 'x'), sibling);
      ASSERT_EQ(::mknod((path + "/" + name).c_str(), S_IFREG, 0), 0);
    }
    path += "/d";
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
  }
  EXPECT_EQ(ours(scratch.path(), physical), theirs(scratch.path(), physical));
}

} // namespace
