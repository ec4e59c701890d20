// Walks that are cancelled, that run out of descriptors, and how many they
// hold.
#include "Foundation/Base/Progress.h"
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Walking/FTS.h"
#include "Foundation/Walking/POSIX/AheadReader.h"
#include "Foundation/Walking/POSIX/HierarchyStream.h"

#include "Support/FakeProcessors.h"
#include "Support/ForkedChild.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"
#include "Support/WalkSequence.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <set>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using kwtest::inForkedChild;
using kwtest::openDescriptorCount;
using kwtest::quickFolder;
using kwtest::ScratchFolder;
using kwtest::SleepWatcher;
using NS::FTSEntry;
using NS::HierarchyStream;
using NS::Progress;

constexpr int physical = NS::FTSOption::PHYSICAL | NS::FTSOption::NOCHDIR;

void makeChain(const std::string &root, int depth) {
  std::string path = root;
  for (int level = 0; level < depth; ++level)
    path += "/d";
  std::filesystem::create_directories(path);
}

// The most that are open while the walk is below the level.
std::size_t mostHeldBelow(int level, NS::FTSStream &stream, std::size_t before) {
  std::size_t most = 0;
  while (FTSEntry *entry = stream.read())
    if (entry->level > level)
      most = std::max(most, openDescriptorCount() - before);
  return most;
}

TEST(FTSResources, holdsNoMoreDescriptorsThanItSaysAlone) {
  ScratchFolder scratch(quickFolder());
  makeChain(scratch.path(), 200);
  std::size_t before = openDescriptorCount();
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  EXPECT_EQ(mostHeldBelow(0, *stream, before), HierarchyStream::mostDescriptors - 1);
}

// Levels that were read ahead hold nothing any more once the walk is beyond.
TEST(FTSResources, holdsNoMoreDescriptorsThanItSaysBelowFoldersReadAhead) {
  ScratchFolder scratch(quickFolder());
  makeChain(scratch.path(), 200);
  kwtest::FakeProcessors processors(4);
  std::size_t before = openDescriptorCount();
  auto stream = NS::FTS::shared().openForAll(scratch.path(), physical);
  EXPECT_EQ(mostHeldBelow(100, *stream, before), HierarchyStream::mostDescriptors - 1);
}

TEST(FTSResources, leavesRoomForAnotherWalksStackInItsShare) {
  static_assert(HierarchyStream::mostDescriptors * 2 <= NS::DescriptorBudget::perWalk);
  NS::DescriptorBudget &walks = NS::DescriptorBudget::ofWalks();
  std::size_t before = walks.inUse();
  ScratchFolder scratch;
  auto stream = NS::FTS::shared().open(scratch.path(), physical);
  EXPECT_EQ(walks.inUse(), before + 1);
  while (stream->read()) {
  }
  EXPECT_EQ(walks.inUse(), before) << "given back at the end, not by the destructor";
}

TEST(FTSResources, readsNothingAheadWhereNoSharesAreToSpare) {
  NS::DescriptorBudget &walks = NS::DescriptorBudget::ofWalks();
  ScratchFolder scratch;
  kwtest::FakeProcessors processors(4);
  std::size_t before = walks.inUse();
  auto first = NS::FTS::shared().openForAll(scratch.path(), physical);
  EXPECT_EQ(walks.inUse(), before + 1 + NS::DescriptorBudget::sharesForHelpers);
  std::vector<NS::DescriptorBudget::Share> others = kwtest::takeAllSpare();
  std::size_t taken = walks.inUse();
  auto second = NS::FTS::shared().openForAll(scratch.path(), physical);
  EXPECT_EQ(walks.inUse(), taken) << "one share for both walks of this thread";
}

// It would touch volumes that such a walk does not enter.
TEST(FTSResources, readsNothingAheadOfAWalkThatRemainsOnItsVolume) {
  NS::DescriptorBudget &walks = NS::DescriptorBudget::ofWalks();
  ScratchFolder scratch;
  kwtest::FakeProcessors processors(4);
  std::size_t before = walks.inUse();
  auto stream = NS::FTS::shared().openForAll(scratch.path(), physical | NS::FTSOption::XDEV);
  EXPECT_EQ(walks.inUse(), before + 1);
}

TEST(FTSResources, stopsAtTheNextItemWhenCancelled) {
  ScratchFolder scratch;
  makeChain(scratch.path(), 20);
  for (unsigned processors : {1u, 4u}) {
    std::size_t before = openDescriptorCount();
    Progress progress;
    Progress::Scope scope(progress);
    HierarchyStream stream(scratch.path(), physical, nullptr, processors);
    for (int item = 0; item < 10; ++item)
      ASSERT_NE(stream.read(), nullptr);
    EXPECT_EQ(stream.failure(), 0);
    progress.cancel();
    EXPECT_EQ(stream.read(), nullptr);
    EXPECT_EQ(stream.failure(), ECANCELED);
    EXPECT_EQ(openDescriptorCount(), before);
    EXPECT_EQ(progress.snapshot().items, 10u);
  }
}

TEST(FTSResources, hasNotFailedWhenItIsCancelledAfterItsEnd) {
  ScratchFolder scratch;
  Progress progress;
  Progress::Scope scope(progress);
  HierarchyStream stream(scratch.path(), physical, nullptr, 1);
  while (stream.read()) {
  }
  progress.cancel();
  EXPECT_EQ(stream.read(), nullptr);
  EXPECT_EQ(stream.failure(), 0);
}

TEST(FTSResources, countsEachItemOnceAndTellsWhereItIs) {
  ScratchFolder scratch;
  makeChain(scratch.path(), 3);
  scratch.file("file", std::string(5000, 'x'));
  ::sync(); // allocation is delayed until then on some volumes
  Progress progress;
  Progress::Scope scope(progress);
  static_cast<void>(progress.snapshot()); // asks for a path
  HierarchyStream stream(scratch.path(), physical, nullptr, 1);
  std::int64_t blocks = 0;
  while (FTSEntry *entry = stream.read())
    blocks += entry->info == NS::FTSInfo::DP ? 0 : entry->statp.blocks;
  Progress::Snapshot taken = progress.snapshot();
  EXPECT_EQ(taken.items, 5u);
  EXPECT_EQ(taken.bytes, static_cast<std::uint64_t>(blocks) * 512);
  EXPECT_EQ(taken.path, scratch.path()) << "that of the first item after the question";
}

// Each is returned a second time with the error.
TEST(FTSResources, countsFoldersOnceThatCannotBeRead) {
  ScratchFolder scratch;
  makeChain(scratch.path(), 60);
  Progress progress;
  Progress::Scope scope(progress);
  HierarchyStream stream(scratch.path(), physical, nullptr, 1);
  FTSEntry *entry = stream.read();
  while (entry->level < 60)
    entry = stream.read();
  std::filesystem::remove(std::string(entry->path));
  EXPECT_EQ(stream.read()->info, NS::FTSInfo::DNR);
  // The way up from the fourth folder is cut, and so is the way down to it.
  std::filesystem::rename(scratch.path("d/d/d/d"), scratch.path("lower"));
  std::filesystem::rename(scratch.path("d/d"), scratch.path("upper"));
  std::set<NS::FTSInfo> others;
  while ((entry = stream.read()))
    others.insert(entry->info);
  EXPECT_EQ(others, (std::set{NS::FTSInfo::DP, NS::FTSInfo::ERR}));
  EXPECT_EQ(progress.snapshot().items, 61u);
}

// Lets this process have so many descriptors more, by numbers from the lowest
// free one.
void limitTo(std::size_t more) {
  rlim_t most = openDescriptorCount() + more;
  rlimit limit{most, most};
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

std::vector<int> openAll() {
  std::vector<int> all;
  for (int fd = 0; (fd = ::open("/", O_RDONLY | O_CLOEXEC)) >= 0;)
    all.push_back(fd);
  return all;
}

TEST(FTSResources, waitsForDescriptorsThatOthersGiveBack) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  makeChain(scratch.path(), 20);
  std::string expected = kwtest::theirs(scratch.path(), physical);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              SleepWatcher sleeps;
              auto stream = NS::FTS::shared().open(scratch.path(), physical);
              limitTo(8);
              std::vector<int> hogs = openAll();
              sleeps.onSleep = [&] {
                for (int hog : hogs)
                  ::close(hog);
                hogs.clear();
              };
              if (kwtest::sequence(*stream, physical) != expected)
                return "another sequence";
              return sleeps.sleeps == 1 && stream->failure() == 0
                         ? ""
                         : std::to_string(sleeps.sleeps) + " sleeps";
            }),
            "");
}

TEST(FTSResources, failsRatherThanLeavingOutFoldersWithoutDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  makeChain(scratch.path(), 20);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              SleepWatcher sleeps;
              auto stream = NS::FTS::shared().open(scratch.path(), physical);
              limitTo(8);
              openAll();
              while (FTSEntry *entry = stream->read())
                if (entry->errnum != 0)
                  return "an entry with errno " + std::to_string(entry->errnum);
              return stream->failure() == EMFILE && sleeps.sleeps == 10
                         ? ""
                         : std::to_string(sleeps.sleeps) + " sleeps, failure " +
                               std::to_string(stream->failure());
            }),
            "");
}

// Below the folders that are read ahead the walk has to find its way from the root
// by their names. Two folders are open then, each for one in it that is not read yet.
TEST(FTSResources, closesFoldersReadAheadRatherThanWaitForDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch(quickFolder());
  std::string path = scratch.path();
  for (int level = 1; level < NS::AheadReader::levels - 1; ++level)
    path += "/d";
  for (const char *lowest : {"/a/a", "/a/b", "/b/a", "/b/b"})
    makeChain(path + lowest, 5);
  std::string expected = kwtest::theirs(scratch.path(), physical);
  EXPECT_EQ(inForkedChild([&]() -> std::string {
              SleepWatcher sleeps;
              kwtest::FakeProcessors processors(4);
              auto stream = NS::FTS::shared().openForAll(scratch.path(), physical);
              limitTo(4);
              if (kwtest::sequence(*stream, physical) != expected)
                return "another sequence";
              return sleeps.sleeps == 0 ? "" : std::to_string(sleeps.sleeps) + " sleeps";
            }),
            "");
}

} // namespace
