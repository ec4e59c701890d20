// When a process ends half-way, the next work in the folder removes its
// leftover beside the destination. It never removes an item under construction.
#include "Foundation/Trees/POSIX/Staging.h"
#include "Foundation/Files/FileContents.h"
#include "Foundation/Files/POSIX/TemporaryNames.h"
#include "Foundation/Trees/FileManager.h"
#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
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
  EXPECT_GE(staging.links(), 0) << "it can be made again";
}

TEST(Staging, removesLeftoversOfEarlierProcessesUnderAnyNumber) {
  ScratchFolder scratch;
  for (const char *name : {".keepwell-copy-00", ".keepwell-copy-07", ".keepwell-copy-15"})
    leaveCopyBehind(scratch, name);
  scratch.file(".keepwell-copy-07/record", "of the items copied so far");
  Descriptor parent = openFolder(scratch.path());
  NS::Staging staging;
  ASSERT_TRUE(staging.open(parent.get()).isDone());
  EXPECT_EQ(names(scratch), std::vector<std::string>{".keepwell-copy-00"});
  EXPECT_TRUE(fs::is_empty(scratch.path(".keepwell-copy-00")));
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
