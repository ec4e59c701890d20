// Flags and times of real items.
#include "Foundation/Files/FileFlags.h"

#include "Support/ForkedChild.h"
#include "Support/LockedItem.h"
#include "Support/LogRecorder.h"
#include "Support/MissingCall.h"
#include "Support/PrivateMounts.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using kwtest::inodeFlags;
using kwtest::LockedItem;
using kwtest::ScratchFolder;
using testing::ElementsAre;
using testing::IsEmpty;

NS::FileFlags &fileFlags() {
  return NS::FileFlags::shared();
}

std::uint32_t flagsOf(const std::string &path) {
  NS::FileStatus status;
  EXPECT_EQ(fileFlags().status(path, status), 0) << path;
  return status.flags;
}

constexpr std::uint32_t bothKinds = NS::UF_IMMUTABLE_FLAG | NS::SF_IMMUTABLE_FLAG;

int clearError(const std::string &path, std::uint32_t mask = bothKinds) {
  int result = fileFlags().clear(path, mask);
  EXPECT_TRUE(result == 0 || (result == -1 && errno != 0)) << path;
  return result == 0 ? 0 : errno;
}

TEST(FileFlags, readTheTimes) {
  ScratchFolder scratch;
  std::time_t before = std::time(nullptr);
  std::string path = scratch.file("file", "");
  struct timespec times[2] = {{-7, 1}, {1'000, 999'999'999}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  NS::FileStatus status;
  ASSERT_EQ(fileFlags().status(path, status), 0);
  EXPECT_EQ(status.accessTime, -7);
  EXPECT_EQ(status.modificationTime, 1'000);
  struct statx host;
  ASSERT_EQ(::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &host), 0);
  // Not every volume keeps it.
  EXPECT_GE(status.birthTime, (host.stx_mask & STATX_BTIME) != 0 ? before - 1 : 0);
  EXPECT_EQ(status.flags, 0u);
}

TEST(FileFlags, failForAMissingItem) {
  ScratchFolder scratch;
  fs::create_symlink("missing", scratch.path("dangling"));
  NS::FileStatus status;
  for (const std::string &path :
       {scratch.path("missing"), scratch.path("dangling"), std::string()}) {
    EXPECT_EQ(fileFlags().status(path, status), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(clearError(path), 0) << "there is nothing to clear";
  }
  std::string cut = scratch.file("file", "") + std::string("\0x", 2);
  EXPECT_EQ(fileFlags().status(cut, status), -1);
  EXPECT_EQ(clearError(cut), 0);
}

TEST(FileFlags, reportTheInodeFlagsAsTheSystemsKind) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "");
  LockedItem locked(path, FS_IMMUTABLE_FL | FS_APPEND_FL);
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(flagsOf(path), NS::SF_IMMUTABLE_FLAG | NS::SF_APPEND_FLAG);
}

TEST(FileFlags, clearThoseOfTheMaskAndKeepAllOthers) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "");
  LockedItem locked(path, FS_NODUMP_FL | FS_NOATIME_FL | FS_IMMUTABLE_FL | FS_APPEND_FL);
  KW_REQUIRE_LOCKED(locked);
  int all = inodeFlags(path);
  EXPECT_EQ(clearError(path, NS::UF_HIDDEN_FLAG | NS::SF_RESTRICTED_FLAG), 0);
  EXPECT_EQ(inodeFlags(path), all);
  // The owner's and the system's kind are one.
  EXPECT_EQ(clearError(path), 0);
  EXPECT_EQ(inodeFlags(path), all & ~FS_IMMUTABLE_FL);
  EXPECT_EQ(clearError(path, NS::SF_APPEND_FLAG), 0);
  EXPECT_EQ(inodeFlags(path), all & ~(FS_IMMUTABLE_FL | FS_APPEND_FL));
}

// Another thread switches a link between an immutable file and an append-only
// one, which must never change.
TEST(FileFlags, ofOneItemAreNeverWrittenToAnother) {
  ScratchFolder scratch;
  std::string immutable = scratch.file("immutable", ""), append = scratch.file("append", "");
  LockedItem locked(immutable), kept(append, FS_APPEND_FL);
  KW_REQUIRE_LOCKED(locked);
  fs::create_symlink("immutable", scratch.path("link"));
  fs::create_symlink("append", scratch.path("other"));
  std::atomic<bool> done = false;
  std::thread turner([&] {
    while (!done)
      ::renameat2(AT_FDCWD, scratch.path("link").c_str(), AT_FDCWD, scratch.path("other").c_str(),
                  RENAME_EXCHANGE);
  });
  for (int round = 0; round < 60000; ++round) {
    ASSERT_TRUE(kwtest::setInodeFlags(immutable, inodeFlags(immutable) | FS_IMMUTABLE_FL));
    EXPECT_EQ(clearError(scratch.path("link")), 0);
  }
  done = true;
  turner.join();
  EXPECT_EQ(flagsOf(append), NS::SF_APPEND_FLAG);
}

TEST(FileFlags, followAFinalLink) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "");
  fs::create_symlink("file", scratch.path("link"));
  LockedItem locked(path);
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(flagsOf(scratch.path("link")), NS::SF_IMMUTABLE_FLAG);
  EXPECT_EQ(clearError(scratch.path("link")), 0);
  EXPECT_EQ(flagsOf(path), 0u);
}

TEST(FileFlags, neverOpenAFifoOrADevice) {
  ScratchFolder scratch;
  std::string fifo = scratch.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(clearError(fifo), 0);
  EXPECT_EQ(clearError("/dev/null"), 0);
  EXPECT_EQ(flagsOf(fifo), 0u);
}

TEST(FileFlags, areNoneWhereTheVolumeKnowsNone) {
  EXPECT_EQ(clearError("/proc/self/status"), 0);
  EXPECT_EQ(flagsOf("/proc/self/status"), 0u);
}

TEST(FileFlags, areOnlyForThePrivilegedToClear) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  std::string path = scratch.file("file", "");
  fs::permissions(scratch.path(), fs::perms(0777));
  LockedItem locked(path);
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(kwtest::inChildWithoutRights(
                [&]() -> std::string { return clearError(path) == 0 ? "cleared" : ""; }),
            "");
  EXPECT_EQ(flagsOf(path), NS::SF_IMMUTABLE_FLAG);
}

// The paths that could not be unlocked beneath a folder.
std::vector<std::string> failuresOfClearing(const std::string &path) {
  std::vector<std::string> failures;
  fileFlags().clearBeneath(path, NS::SF_IMMUTABLE_FLAG, [&](const std::string &item, int errnum) {
    failures.push_back(item + " " + std::to_string(errnum));
  });
  return failures;
}

TEST(ClearBeneath, clearsTheMaskOfAllDescendantsAndNotOfTheFolder) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("root/sub"));
  LockedItem file(scratch.file("root/sub/file", ""), FS_IMMUTABLE_FL | FS_APPEND_FL);
  KW_REQUIRE_LOCKED(file);
  LockedItem sub(scratch.path("root/sub")), root(scratch.path("root"));
  EXPECT_THAT(failuresOfClearing(scratch.path("root")), IsEmpty());
  EXPECT_EQ(flagsOf(scratch.path("root")), NS::SF_IMMUTABLE_FLAG);
  EXPECT_EQ(flagsOf(scratch.path("root/sub")), 0u);
  EXPECT_EQ(flagsOf(scratch.path("root/sub/file")), NS::SF_APPEND_FLAG);
}

TEST(ClearBeneath, clearsTheTargetOfALinkAndDoesNotDescendThere) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("root"));
  fs::create_directory(scratch.path("outside"));
  LockedItem inner(scratch.file("outside/inner", ""));
  KW_REQUIRE_LOCKED(inner);
  LockedItem outside(scratch.path("outside"));
  fs::create_directory_symlink("../outside", scratch.path("root/link"));
  fs::create_symlink("missing", scratch.path("root/dangling"));
  EXPECT_THAT(failuresOfClearing(scratch.path("root")), IsEmpty());
  EXPECT_EQ(flagsOf(scratch.path("outside")), 0u);
  EXPECT_EQ(flagsOf(scratch.path("outside/inner")), NS::SF_IMMUTABLE_FLAG);
}

TEST(ClearBeneath, doesNothingForFilesLinksAndProtectedTrees) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("root/sub"));
  LockedItem file(scratch.file("root/file", ""));
  KW_REQUIRE_LOCKED(file);
  fs::create_directory_symlink("root", scratch.path("link"));
  kwtest::LogRecorder log;
  for (const char *name : {"root/file", "link", "root/.", "root/sub/..", "missing"})
    EXPECT_THAT(failuresOfClearing(scratch.path(name)), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(flagsOf(scratch.path("root/file")), NS::SF_IMMUTABLE_FLAG);
}

TEST(ClearBeneath, namesItemsThatItCannotClear) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("root/sub"));
  LockedItem file(scratch.file("root/sub/file", ""));
  KW_REQUIRE_LOCKED(file);
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("root"), scratch.path("root")) ||
                  !kwtest::makeReadOnly(scratch.path("root")))
                return "no mount";
              auto failures = failuresOfClearing(scratch.path("root/sub"));
              return failures == std::vector{scratch.path("root/sub/file") + " " +
                                             std::to_string(EROFS)}
                         ? ""
                         : "other failures";
            }),
            "");
}

TEST(ClearBeneath, tellsOfFoldersLeftOutForLackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder scratch;
  for (int folder = 0; folder < 100; ++folder)
    fs::create_directories(scratch.path("root/" + std::to_string(folder)));
  std::size_t most = 0;
  for (std::size_t left = 0; left < 4; ++left) {
    kwtest::SleepWatcher sleeps;
    kwtest::LogRecorder log;
    {
      kwtest::FewDescriptorsLeft scarcity(left);
      failuresOfClearing(scratch.path("root"));
    }
    most = std::max(most, log.lines().size());
    for (std::size_t line = 0; line < std::min<std::size_t>(log.lines().size(), 16); ++line) {
      EXPECT_TRUE(log.lines()[line].starts_with(scratch.path("root")));
      EXPECT_TRUE(log.lines()[line].ends_with(
          " cannot be listed: Too many open files; the rest of it stays locked."))
          << log.lines()[line];
    }
    EXPECT_TRUE(left > 0 || log.lines().size() == 1) << "the root";
  }
  EXPECT_EQ(most, 17u) << "the last line says that there are more";
}

TEST(ClearBeneath, tellsOfAFolderThatItCannotList) {
  ScratchFolder scratch;
  scratch.file("item", "");
  EXPECT_EQ(kwtest::lineWithoutListings([&] {
              return failuresOfClearing(scratch.path()).empty() ? "" : "a failure was told";
            }),
            scratch.path() + " cannot be listed: Input/output error; the rest of it stays locked.");
}

// The way back up out of the first chain of folders leads elsewhere; the others
// are visited even so, in any order.
TEST(ClearBeneath, goesOnAfterAFolderThatIsMovedMeanwhile) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  constexpr std::size_t chains = 5;
  std::deque<LockedItem> locked;
  for (std::size_t number = 0; number < chains; ++number) {
    std::string chain = "root/tree/" + std::to_string(number);
    for (int level = 0; level < 12; ++level)
      chain += "/d";
    fs::create_directories(scratch.path(chain));
    locked.emplace_back(scratch.file(chain + "/bottom" + std::to_string(number), ""));
    KW_REQUIRE_LOCKED(locked.back());
  }
  fs::create_directory(scratch.path("seen"));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("root"), scratch.path("seen")) ||
                  !kwtest::makeReadOnly(scratch.path("seen")))
                return "no mount";
              kwtest::LogRecorder log;
              std::size_t failures = 0;
              std::string moved;
              NS::FileFlags::shared().clearBeneath(scratch.path("seen/tree"), NS::SF_IMMUTABLE_FLAG,
                                                   [&](const std::string &path, int) {
                                                     if (++failures > 1)
                                                       return;
                                                     moved = scratch.path("root/tree/") +
                                                             path.back() + "/d/d";
                                                     fs::rename(moved, scratch.path("moved"));
                                                   });
              fs::rename(scratch.path("moved"), moved);
              if (log.lines().size() != 1 ||
                  !log.lines()[0].ends_with("/d/d was moved; the rest of it stays locked."))
                return std::to_string(log.lines().size()) + " lines";
              return failures == chains ? "" : std::to_string(failures) + " failures";
            }),
            "");
}

// All items beneath a folder, each before its contents, in the order of the
// listings.
void appendDescendants(const std::string &folder, std::vector<std::string> &paths) {
  for (const auto &entry : fs::directory_iterator(folder)) {
    paths.push_back(entry.path());
    if (entry.is_directory())
      appendDescendants(entry.path(), paths);
  }
}

TEST(ClearBeneath, visitsEachItemBeforeItsContentsInTheOrderOfTheListings) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  std::deque<LockedItem> locks;
  for (const char *folder : {"root", "root/b", "root/a", "root/b/2", "root/b/1"}) {
    fs::create_directory(scratch.path(folder));
    scratch.file(std::string(folder) + "/file", "");
    scratch.file(std::string(folder) + "/another", "");
  }
  std::vector<std::string> items, expected;
  appendDescendants(scratch.path("root"), items);
  for (const std::string &item : items) {
    locks.emplace_back(item);
    KW_REQUIRE_LOCKED(locks.back());
    expected.push_back(item + " " + std::to_string(EROFS));
  }
  // On a read-only volume each item is told when its turn comes.
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("root"), scratch.path("root")) ||
                  !kwtest::makeReadOnly(scratch.path("root")))
                return "no mount";
              std::string order;
              for (const std::string &failure : failuresOfClearing(scratch.path("root/b")))
                order += failure + "\n";
              std::string wanted;
              for (const std::string &item : expected)
                if (item.starts_with(scratch.path("root/b/")))
                  wanted += item + "\n";
              return order == wanted ? "" : order + "instead of\n" + wanted;
            }),
            "");
}

TEST(ClearBeneath, staysOffMountedVolumes) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("root/mounted"));
  fs::create_directory(scratch.path("outside"));
  LockedItem file(scratch.file("outside/file", ""));
  KW_REQUIRE_LOCKED(file);
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("outside"), scratch.path("root/mounted")))
                return "no mount";
              return failuresOfClearing(scratch.path("root")).empty() ? "" : "failures";
            }),
            "");
  EXPECT_EQ(flagsOf(scratch.path("outside/file")), NS::SF_IMMUTABLE_FLAG);
}

} // namespace
