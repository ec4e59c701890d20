// When a process ends half-way, the next work in the folder removes its
// leftover beside the destination. It never removes an item under construction.
#include "Foundation/Trees/POSIX/Staging.h"
#include "Foundation/Files/FileContents.h"
#include "Foundation/Files/POSIX/TemporaryNames.h"
#include "Foundation/Trees/FileManager.h"
#include "Support/ForkedChild.h"
#include "Support/LockedItem.h"
#include "Support/LogRecorder.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"
#include "Support/WatchedCalls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::Descriptor;

Descriptor openFolder(const std::string &path) {
  return Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

std::vector<std::string> names(const ScratchFolder &scratch) {
  std::vector<std::string> found;
  for (const auto &entry : fs::directory_iterator(scratch.path()))
    found.push_back(entry.path().filename().string());
  return found;
}

void leaveCopyBehind(const ScratchFolder &scratch, const std::string &name) {
  fs::create_directories(scratch.path(name + "/item/inner"));
  scratch.file(name + "/item/inner/file", "half a fi");
}

TEST(Staging, makesAFolderForTheOwnerAloneAndRemovesItWithItsContents) {
  ScratchFolder scratch;
  Descriptor parent = openFolder(scratch.path());
  {
    NS::Staging staging;
    ASSERT_TRUE(staging.open(parent.get()).isDone());
    ASSERT_EQ(names(scratch), std::vector<std::string>{".keepwell-copy-00"});
    EXPECT_EQ(fs::status(scratch.path(".keepwell-copy-00")).permissions(), fs::perms::owner_all);
    fs::create_directories(scratch.path(".keepwell-copy-00/item/inner"));
  }
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(Staging, removesTheFolderOfFurtherNamesBeforeTheRest) {
  ScratchFolder scratch;
  Descriptor parent = openFolder(scratch.path());
  NS::Staging staging;
  ASSERT_TRUE(staging.open(parent.get()).isDone());
  int links = staging.links();
  ASSERT_GE(links, 0);
  EXPECT_EQ(staging.links(), links) << "it is made once";
  ASSERT_EQ(::mkdirat(links, "name", 0700), 0);
  staging.dropLinks();
  EXPECT_TRUE(fs::is_empty(scratch.path(".keepwell-copy-00")));
  staging.dropLinks();
  EXPECT_GE(staging.links(), 0);
  EXPECT_FALSE(fs::is_empty(scratch.path(".keepwell-copy-00"))) << "it can be made again";
}

TEST(Staging, removesLeftoversOfEarlierProcessesUnderAnyNumber) {
  ScratchFolder scratch;
  for (const char *name : {".keepwell-copy-00", ".keepwell-copy-07", ".keepwell-copy-15"})
    leaveCopyBehind(scratch, name);
  fs::create_directory(scratch.path(".keepwell-copy-07/links"));
  scratch.file(".keepwell-copy-07/links/name", "of a file that has several");
  scratch.file(".keepwell-copy-07/record", "of the items copied so far");
  Descriptor parent = openFolder(scratch.path());
  kwtest::LogRecorder log;
  NS::Staging staging;
  ASSERT_TRUE(staging.open(parent.get()).isDone());
  EXPECT_EQ(names(scratch), std::vector<std::string>{".keepwell-copy-00"});
  EXPECT_TRUE(fs::is_empty(scratch.path(".keepwell-copy-00")));
  EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

TEST(Staging, logsALeftoverThatStays) {
  ScratchFolder scratch;
  leaveCopyBehind(scratch, ".keepwell-copy-00");
  scratch.file(".keepwell-copy-00/item of others", "kept");
  Descriptor parent = openFolder(scratch.path());
  kwtest::LogRecorder log;
  NS::Staging staging;
  ASSERT_TRUE(staging.open(parent.get()).isDone());
  EXPECT_EQ(scratch.content(".keepwell-copy-00/item of others"), "kept");
  std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(".keepwell-copy-00"), std::string::npos) << lines[0];
}

TEST(Staging, isSilentWhenOthersRemovedItsFolder) {
  ScratchFolder scratch;
  Descriptor parent = openFolder(scratch.path());
  kwtest::LogRecorder log;
  {
    NS::Staging staging;
    ASSERT_TRUE(staging.open(parent.get()).isDone());
    fs::remove(scratch.path(".keepwell-copy-00"));
  }
  EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

TEST(Staging, leavesTheFolderOfALivingProcessAlone) {
  ScratchFolder scratch;
  Descriptor parent = openFolder(scratch.path());
  NS::Staging first;
  ASSERT_TRUE(first.open(parent.get()).isDone());
  fs::create_directory(scratch.path(".keepwell-copy-00/item"));
  std::string found = kwtest::inForkedChild([&]() -> std::string {
    Descriptor again = openFolder(scratch.path());
    NS::Staging second;
    if (second.open(again.get()).isFailed())
      return "not opened";
    return fs::exists(scratch.path(".keepwell-copy-00/item")) &&
                   fs::exists(scratch.path(".keepwell-copy-01"))
               ? ""
               : "what was being built is gone";
  });
  EXPECT_EQ(found, "");
  EXPECT_EQ(names(scratch), std::vector<std::string>{".keepwell-copy-00"});
}

TEST(Staging, leavesItemsOfOthersWithSuchNamesAlone) {
  if (::geteuid() != 0)
    GTEST_SKIP() << "needs root, to give a folder away";
  ScratchFolder scratch;
  leaveCopyBehind(scratch, ".keepwell-copy-00");
  ASSERT_EQ(::chown(scratch.path(".keepwell-copy-00").c_str(), 1, 1), 0);
  fs::create_directory_symlink("elsewhere", scratch.path(".keepwell-copy-01"));
  scratch.file(".keepwell-copy-02", "a file");
  Descriptor parent = openFolder(scratch.path());
  NS::Staging staging;
  ASSERT_TRUE(staging.open(parent.get()).isDone());
  EXPECT_TRUE(fs::exists(scratch.path(".keepwell-copy-00/item/inner/file")));
  EXPECT_TRUE(fs::is_symlink(scratch.path(".keepwell-copy-01")));
  EXPECT_EQ(scratch.content(".keepwell-copy-02"), "a file");
  EXPECT_TRUE(fs::is_directory(scratch.path(".keepwell-copy-03")));
}

TEST(Staging, findsANameThoughAllNumbersAreTaken) {
  ScratchFolder scratch;
  for (unsigned slot = 0; slot < NS::temporarySlots; ++slot)
    scratch.file(NS::temporaryName(".keepwell-copy-", slot), "taken");
  Descriptor parent = openFolder(scratch.path());
  {
    NS::Staging staging;
    ASSERT_TRUE(staging.open(parent.get()).isDone());
    EXPECT_EQ(names(scratch).size(), NS::temporarySlots + 1);
  }
  EXPECT_EQ(names(scratch).size(), NS::temporarySlots);
}

// Opens a staging folder. As soon as its first one exists, another process does
// something to it, just before a call of this number. Returns a failure, or an
// empty text.
std::string openAfter(const ScratchFolder &scratch, unsigned call,
                      const std::function<void(const std::string &path)> &deed) {
  return kwtest::inForkedChild([&]() -> std::string {
    Descriptor parent = openFolder(scratch.path());
    std::string path = scratch.path(".keepwell-copy-00");
    bool isDone = false;
    if (!kwtest::beforeCalls(call, [&](const kwtest::CallArguments &) {
          if (!isDone && fs::exists(path)) {
            isDone = true;
            deed(path);
          }
        }))
      return "the calls cannot be watched";
    NS::Staging staging;
    if (staging.open(parent.get()).isFailed())
      return "not opened";
    if (!isDone)
      return "there was no such call";
    return fs::exists(scratch.path(".keepwell-copy-01")) && staging.links() >= 0
               ? ""
               : "it works in a folder that others have taken";
  });
}

TEST(Staging, leavesAFolderThatAnotherProcessTookForALeftoverToIt) {
  ScratchFolder scratch;
  auto remove = [](const std::string &path) { fs::remove(path); };
  auto lock = [](const std::string &path) {
    static_cast<void>(::flock(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), LOCK_EX));
  };
  EXPECT_EQ(openAfter(scratch, SYS_openat, remove), "");
  EXPECT_EQ(openAfter(scratch, SYS_flock, remove), "");
  EXPECT_EQ(openAfter(scratch, SYS_flock, lock), "");
}

TEST(Staging, leavesNothingWhenThereAreNoDescriptorsForIt) {
  ScratchFolder scratch;
  Descriptor parent = openFolder(scratch.path());
  for (std::size_t left : {0u, 1u}) {
    NS::Staging staging;
    kwtest::FewDescriptorsLeft few(left);
    EXPECT_EQ(staging.open(parent.get()).errnum(), EMFILE) << left;
  }
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(Staging, opensNoFolderInAnImmutableOne) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("locked"));
  kwtest::LockedItem locked(scratch.path("locked"));
  KW_REQUIRE_LOCKED(locked);
  Descriptor folder = openFolder(scratch.path("locked"));
  NS::Staging staging;
  EXPECT_EQ(staging.open(folder.get()).errnum(), EPERM);
  EXPECT_EQ(names(scratch), std::vector<std::string>{"locked"});
}

TEST(Staging, ofSeveralAtOnceInOneDestinationNeverGetInEachOthersWay) {
  ScratchFolder scratch;
  Descriptor parent = openFolder(scratch.path());
  std::atomic<int> failures = 0;
  std::vector<std::thread> copies;
  for (int count = 0; count < 8; ++count)
    copies.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        NS::Staging staging;
        if (staging.open(parent.get()).isFailed() ||
            ::faccessat(staging.folder(), ".", W_OK, 0) != 0)
          ++failures;
      }
    });
  for (std::thread &copy : copies)
    copy.join();
  EXPECT_EQ(failures, 0);
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(CopyItem, removesTheLeftoverOfAnEarlierCopy) {
  ScratchFolder scratch;
  scratch.file("source", "content");
  leaveCopyBehind(scratch, ".keepwell-copy-00");
  ASSERT_TRUE(NS::FileManager::defaultManager().copyItemAtPath(scratch.path("source"),
                                                               scratch.path("copy"), nullptr));
  EXPECT_EQ(scratch.content("copy"), "content");
  EXPECT_EQ(names(scratch).size(), 2u);
}

TEST(WriteToFileAtomically, removesLeftoversOfEarlierWritesButNotOnesUnderWay) {
  ScratchFolder scratch;
  for (const char *name : {".keepwell-new-00", ".keepwell-new-01", ".keepwell-new-15"})
    scratch.file(name, "half a fi");
  Descriptor underWay(::open(scratch.path(".keepwell-new-01").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(underWay.get(), LOCK_EX), 0);
  ASSERT_TRUE(
      NS::FileContents::shared().writeToFileAtomically(scratch.path("file"), "new", nullptr));
  EXPECT_EQ(scratch.content("file"), "new");
  EXPECT_EQ(scratch.content(".keepwell-new-01"), "half a fi");
  EXPECT_EQ(names(scratch).size(), 2u);
}

} // namespace
