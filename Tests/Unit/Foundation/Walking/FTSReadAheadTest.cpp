// Walks that several threads read ahead of, against the walk alone: the same
// sequence on any tree, and everything bounded.
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Walking/FTS.h"

#include "Support/Allocations.h"
#include "Support/Attacker.h"
#include "Support/FakeProcessors.h"
#include "Support/FolderWatch.h"
#include "Support/PrivateMounts.h"
#include "Support/RandomTree.h"
#include "Support/Sanitizers.h"
#include "Support/ScratchFolder.h"
#include "Support/WalkSequence.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

using kwtest::FakeProcessors;
using kwtest::inForkedChild;
using kwtest::openDescriptorCount;
using kwtest::ours;
using kwtest::quickFolder;
using kwtest::RandomTree;
using kwtest::ScratchFolder;
using NS::DescriptorBudget;

constexpr int physical = NS::FTSOption::PHYSICAL | NS::FTSOption::NOCHDIR;
constexpr int withoutStat = physical | NS::FTSOption::NOSTAT;

std::string ahead(const std::string &root, int options, unsigned skipEvery = 0) {
  FakeProcessors processors(4);
  return kwtest::sequence(*NS::FTS::shared().openForAll(root, options), options, skipEvery);
}

// Wide and bushy enough for every thread to find work.
void makeBush(const std::string &path, int width, int depth) {
  for (int index = 0; index < width; ++index) {
    std::string name = path + "/" + std::to_string(index);
    std::ofstream(name + ".file") << "content";
    std::filesystem::create_directory(name);
    if (depth > 1)
      makeBush(name, width, depth - 1);
  }
}

TEST(FTSReadAhead, givesTheSequenceOfTheWalkAloneOnAThousandTrees) {
  for (std::uint32_t seed = 1; seed <= 1000; ++seed) {
    ScratchFolder scratch(quickFolder());
    RandomTree tree(scratch.path(), seed, 40);
    int options = seed % 2 == 0 ? physical : withoutStat;
    ASSERT_EQ(ahead(scratch.path(), options), ours(scratch.path(), options)) << seed;
  }
}

TEST(FTSReadAhead, givesTheSequenceOfTheWalkAloneOnADisk) {
  ScratchFolder scratch;
  makeBush(scratch.path(), 5, 3);
  for (int options : {physical, withoutStat})
    EXPECT_EQ(ahead(scratch.path(), options), ours(scratch.path(), options));
}

TEST(FTSReadAhead, passesOverSkippedFoldersThatWereRead) {
  ScratchFolder scratch(quickFolder());
  makeBush(scratch.path(), 7, 4);
  EXPECT_EQ(ahead(scratch.path(), physical, 3), ours(scratch.path(), physical, 3));
}

// Those in them are too few for another thread to read them.
TEST(FTSReadAhead, passesOverSkippedFoldersWhoseFoldersWereNotRead) {
  ScratchFolder scratch(quickFolder());
  for (const char *path : {"a/x/inner", "a/y/inner", "b/x/inner", "b/y/inner"})
    std::filesystem::create_directories(scratch.path(path));
  FakeProcessors processors(4);
  auto stream = NS::FTS::shared().openForAll(scratch.path(), physical);
  std::size_t entries = 0;
  while (NS::FTSEntry *entry = stream->read()) {
    EXPECT_LE(entry->level, 1);
    ++entries;
    if (entry->level == 1)
      stream->set(*entry, NS::FTSInstruction::SKIP);
  }
  EXPECT_EQ(entries, 6u);
}

// Names and folders beyond one batch, so that folders are read in parts.
void makeLargeFolder(const ScratchFolder &scratch) {
  std::string filler(200, 'x');
  for (int index = 0; index < 3000; ++index) {
    std::string path = scratch.path(std::to_string(index) + filler);
    if (index % 3 == 0)
      std::filesystem::create_directories(path + "/inner");
    else
      std::ofstream(path) << "";
  }
}

TEST(FTSReadAhead, readsLargeFoldersInParts) {
  ScratchFolder scratch(quickFolder());
  makeLargeFolder(scratch);
  for (int options : {physical, withoutStat})
    EXPECT_EQ(ahead(scratch.path(), options), ours(scratch.path(), options));
}

// Deeper than is read ahead, with something to come back to on every level.
TEST(FTSReadAhead, goesOnAloneInTheDeep) {
  ScratchFolder scratch(quickFolder());
  std::string path = scratch.path();
  for (int level = 0; level < 90; ++level) {
    for (int sibling = 0; sibling < 3; ++sibling)
      std::filesystem::create_directories(path + "/s" + std::to_string(sibling) + "/inner");
    path += "/s1";
  }
  for (int options : {physical, withoutStat})
    EXPECT_EQ(ahead(scratch.path(), options), ours(scratch.path(), options));
}

TEST(FTSReadAhead, walksFarDeeperThanAnyPathReaches) {
  ScratchFolder scratch(quickFolder());
  kwtest::DeepChain chain(scratch.path(), 40000);
  FakeProcessors processors(4);
  auto stream = NS::FTS::shared().openForAll(scratch.path(), physical);
  int folders = 0;
  while (NS::FTSEntry *entry = stream->read())
    folders += entry->info == NS::FTSInfo::D;
  EXPECT_EQ(folders, 40001);
}

TEST(FTSReadAhead, walksAloneWithFewDescriptors) {
  ScratchFolder scratch(quickFolder());
  makeBush(scratch.path(), 5, 4);
  std::string expected = ours(scratch.path(), physical);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              kwtest::limitDescriptors(32);
              return ahead(scratch.path(), physical) == expected ? "" : "another sequence";
            }),
            "");
}

// The limit is high enough to read ahead, but next to none are left, so that
// any of the threads meets the end of them.
TEST(FTSReadAhead, retreatsWhenDescriptorsRunOut) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch(quickFolder());
  makeBush(scratch.path(), 5, 4);
  std::string expected = ours(scratch.path(), physical);
  for (unsigned left = 4; left <= 12; ++left)
    EXPECT_EQ(inForkedChild([&]() -> std::string {
                constexpr unsigned limit = 600;
                kwtest::limitDescriptors(limit);
                if (!DescriptorBudget::ofWalks().takeSpare(1 + DescriptorBudget::sharesForHelpers))
                  return "too few to read ahead";
                for (std::size_t open = openDescriptorCount(); open < limit - left; ++open)
                  if (::dup(0) < 0)
                    return "no descriptors to take";
                return ahead(scratch.path(), physical) == expected ? "" : "another sequence";
              }),
              "")
        << left;
}

TEST(FTSReadAhead, opensEachFolderOnce) {
  ScratchFolder scratch(quickFolder());
  makeBush(scratch.path(), 4, 3);
  kwtest::FolderWatch opened(scratch.path("2/1"), IN_OPEN);
  static_cast<void>(ahead(scratch.path(), physical));
  EXPECT_EQ(opened.count(), 1);
}

TEST(FTSReadAhead, leavesNoDescriptorOpenWhereverItIsClosed) {
  ScratchFolder scratch(quickFolder());
  makeBush(scratch.path(), 6, 3);
  FakeProcessors processors(4);
  std::size_t before = openDescriptorCount();
  for (int steps = 0; steps < 600; steps += 7) {
    auto stream = NS::FTS::shared().openForAll(scratch.path(), physical);
    for (int step = 0; step < steps && stream->read(); ++step) {
    }
    stream->close();
    EXPECT_EQ(stream->read(), nullptr);
    ASSERT_EQ(openDescriptorCount(), before) << steps;
  }
}

TEST(FTSReadAhead, leavesNoMemoryInUseWhereverItIsClosed) {
  ScratchFolder scratch(quickFolder());
  makeLargeFolder(scratch);
  auto closeAfter = [&](int steps) {
    FakeProcessors processors(4);
    auto stream = NS::FTS::shared().openForAll(scratch.path(), physical);
    for (int step = 0; step < steps; ++step)
      stream->read();
  };
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              closeAfter(1000); // the first walk makes things that last
              std::size_t before = kwtest::piecesOfMemory();
              for (int steps = 0; steps < 4000; steps += 250) {
                closeAfter(steps);
                if (kwtest::piecesOfMemory() != before)
                  return "closed after " + std::to_string(steps);
              }
              return "";
            }),
            "");
}

TEST(FTSReadAhead, givesDCForAFolderThatIsItsOwnAncestor) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root to mount";
  ScratchFolder scratch;
  makeBush(scratch.path(), 4, 3);
  std::filesystem::create_directory(scratch.path("2/cycle"));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path(), scratch.path("2/cycle")))
                return "no mount";
              std::string text = ahead(scratch.path(), physical);
              if (text.find("2 2 " + scratch.path("2/cycle")) == std::string::npos)
                return "no cycle: " + text;
              return text == ours(scratch.path(), physical) ? "" : "another sequence";
            }),
            "");
}

TEST(FTSReadAhead, isNotLedOutsideByFoldersSwappedForLinks) {
  ScratchFolder scratch(quickFolder());
  ScratchFolder outside(quickFolder());
  makeBush(scratch.path(), 5, 3);
  makeBush(outside.path(), 3, 1);
  outside.file("secret", "");
  std::vector<kwtest::Attacker::Pair> pairs;
  for (int index = 0; index < 5; ++index) {
    std::string folder = scratch.path(std::to_string(index) + "/1");
    std::filesystem::create_directory_symlink(outside.path(), folder + "-link");
    pairs.emplace_back(folder, folder + "-link");
  }
  kwtest::Attacker attacker(pairs);
  FakeProcessors processors(4);
  for (int round = 0; round < 150; ++round) {
    std::string text =
        kwtest::sequence(*NS::FTS::shared().openForAll(scratch.path(), physical), physical);
    ASSERT_EQ(text.find("secret"), std::string::npos) << text;
  }
}

} // namespace
