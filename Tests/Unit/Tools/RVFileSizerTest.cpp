// The measuring walk: the count of each entry, the entries left out, and the
// whole compared with a computation of the test's own.
#include "Tools/RVFileSizer.h"

#include "Foundation/Base/Progress.h"

#include "Support/AssertionRecorder.h"
#include "Support/FakeFTS.h"
#include "Support/ForkedChild.h"
#include "Support/LogRecorder.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"
#include "Support/UncompressedMode.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <dirent.h>
#include <future>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

namespace {

using kw::RVFileSizer;
using kwtest::FakeFTS;
using kwtest::LogRecorder;
using kwtest::ScratchFolder;
using NS::FTSInfo;

constexpr std::int64_t twoTebibytes = std::int64_t{1} << 41;

const RVFileSizer &sizer() {
  return RVFileSizer::shared();
}

struct stat statusOf(const std::string &path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

std::uint64_t allocated(const std::string &path) {
  return static_cast<std::uint64_t>(statusOf(path).st_blocks) * 512;
}

std::string oneBlockFile(const ScratchFolder &scratch, std::string_view name) {
  std::string path = scratch.file(name, std::string(4096, 'x'));
  ::sync(); // allocation is delayed until then on some volumes
  return path;
}

// An own computation by path and readdir, which knows nothing of entries: each
// folder's blocks twice, everything else's once.
std::uint64_t blocksByPath(const std::string &path) {
  struct stat status = statusOf(path);
  auto own = static_cast<std::uint64_t>(status.st_size < twoTebibytes ? status.st_blocks
                                                                      : status.st_size / 512);
  if (!S_ISDIR(status.st_mode))
    return own;
  std::uint64_t total = own * 2;
  DIR *folder = ::opendir(path.c_str());
  while (const dirent *entry = ::readdir(folder)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..")
      total += blocksByPath(path + "/" + name);
  }
  ::closedir(folder);
  return total;
}

TEST(RVFileSizer, tellsOfAWalkThatWasGivenUp) {
  FakeFTS walk;
  LogRecorder log;
  walk.add("/x", FTSInfo::F, walk.top, {.blocks = 8});
  walk.failure = EMFILE;
  std::optional<NS::Error> error;
  EXPECT_EQ(sizer().wholeItemSizeAtPath("/x", &error), 4096u);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->underlyingError()->code(), EMFILE);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"/x was not measured to its end: Too many open files"}));
}

TEST(RVFileSizer, tellsOfAWalkThatCouldNotBeginWithoutMemory) {
  FakeFTS walk;
  LogRecorder log;
  walk.refuses = true;
  std::optional<NS::Error> error;
  EXPECT_EQ(sizer().wholeItemSizeAtPath("/x", &error), 0u);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->underlyingError()->code(), ENOMEM);
}

TEST(RVFileSizer, measuresNothingFurtherOnceItsRequestIsCancelled) {
  ScratchFolder scratch;
  LogRecorder log;
  NS::Progress progress;
  NS::Progress::Scope scope(progress);
  progress.cancel();
  std::optional<NS::Error> error;
  EXPECT_EQ(sizer().wholeItemSizeAtPath(scratch.path(), &error), 0u);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), "NSCocoaErrorDomain");
  EXPECT_EQ(error->code(), 3072);
  EXPECT_EQ(error->underlyingError()->code(), ECANCELED);
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(scratch.path()), 0u);
}

TEST(RVFileSizer, measuresAnEmptyPathAsNothingWithoutLooking) {
  FakeFTS walk;
  LogRecorder log;
  EXPECT_EQ(sizer().originalItemSizeAtPath(""), 0u);
  EXPECT_EQ(sizer().itemSizeAtPath(""), 0u);
  EXPECT_EQ(walk.opened, 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(RVFileSizer, measuresAMissingItemAsNothingAndSaysNothing) {
  ScratchFolder scratch;
  LogRecorder log;
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path("missing")), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST(RVFileSizer, logsAWalkThatCannotBeOpened) {
  FakeFTS walk;
  walk.refuses = true;
  LogRecorder log;
  EXPECT_EQ(sizer().itemSizeAtPath("/some/path"), 0u);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Error opening file /some/path"});
}

TEST(RVFileSizer, walksPhysicallyAndStaysInItsWorkingFolder) {
  FakeFTS walk;
  sizer().itemSizeAtPath("/some/path");
  EXPECT_EQ(walk.openedPath, "/some/path");
  EXPECT_EQ(walk.openedOptions, 0x14);
  EXPECT_EQ(walk.closed, 1);
}

TEST(RVFileSizer, measuresAFileOfOneBlockAsThatBlock) {
  ScratchFolder scratch;
  EXPECT_EQ(sizer().itemSizeAtPath(oneBlockFile(scratch, "file")), 4096u);
}

TEST(RVFileSizer, countsAFolderTwiceAndItsFileOnce) {
  ScratchFolder scratch;
  oneBlockFile(scratch, "file");
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path()), 2 * allocated(scratch.path()) + 4096);
}

TEST(RVFileSizer, measuresTheItemOfAURL) {
  ScratchFolder scratch;
  std::string path = oneBlockFile(scratch, "file");
  EXPECT_EQ(sizer().itemSizeAtURL(NS::URL::fileURLWithPath(path)), 4096u);
}

TEST(RVFileSizer, roundsTheLogicalSizeUpToTheIOBlockInTheUncompressedMode) {
  ScratchFolder scratch;
  scratch.file("file", std::string(5000, 'x'));
  std::filesystem::create_directory(scratch.path("inner"));
  scratch.file("inner/file", "x");
  kwtest::UncompressedMode mode;
  auto block = static_cast<std::uint64_t>(statusOf(scratch.path("file")).st_blksize);
  std::uint64_t rounded = (5000 + block - 1) / block * block;
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path("file")), rounded);
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path()), rounded + block) << "folders count nothing";
}

TEST(RVFileSizer, leavesTheLogicalSizeAsItIsWithoutAnIOBlock) {
  FakeFTS walk;
  walk.top.level = -1;
  walk.add("/file", FTSInfo::F, walk.top, {.size = 5000, .blocks = 16, .blockSize = 0});
  kwtest::UncompressedMode mode;
  EXPECT_EQ(sizer().itemSizeAtPath("/file"), 5000u);
}

TEST(RVFileSizer, leavesAWholeNumberOfIOBlocksAsItIs) {
  FakeFTS walk;
  walk.add("/file", FTSInfo::F, walk.top, {.size = 8192, .blocks = 1, .blockSize = 4096});
  kwtest::UncompressedMode mode;
  EXPECT_EQ(sizer().itemSizeAtPath("/file"), 8192u);
}

TEST(RVFileSizer, trustsTheBlocksOfAnItemJustBelowTwoTebibytes) {
  FakeFTS walk;
  walk.add("/file", FTSInfo::F, walk.top, {.size = twoTebibytes - 1, .blocks = 8});
  EXPECT_EQ(sizer().itemSizeAtPath("/file"), 4096u);
}

TEST(RVFileSizer, countsTheLogicalSizeOfLargerFilesRoundedDown) {
  FakeFTS walk;
  walk.add("/file", FTSInfo::F, walk.top, {.size = twoTebibytes + 511, .blocks = 8});
  EXPECT_EQ(sizer().itemSizeAtPath("/file"), static_cast<std::uint64_t>(twoTebibytes));
}

TEST(RVFileSizer, roundsALargerFolderDownOnTheWayInAndUpOnTheWayOut) {
  FakeFTS walk;
  NS::FTSEntry &folder =
      walk.add("/folder", FTSInfo::D, walk.top, {.size = twoTebibytes + 1, .blocks = 8});
  walk.again(folder, FTSInfo::DP);
  EXPECT_EQ(sizer().itemSizeAtPath("/folder"), static_cast<std::uint64_t>(2 * twoTebibytes + 512));
}

TEST(RVFileSizer, measuresRealHolesOfTwoTebibytesAndMore) {
  ScratchFolder scratch;
  struct Row {
    std::int64_t size;
    std::uint64_t expected;
  };
  for (auto [size, expected] :
       {Row{twoTebibytes - 1, 0}, Row{twoTebibytes, static_cast<std::uint64_t>(twoTebibytes)},
        Row{4 * twoTebibytes, static_cast<std::uint64_t>(4 * twoTebibytes)},
        Row{4 * twoTebibytes + 700, static_cast<std::uint64_t>(4 * twoTebibytes + 512)}}) {
    std::string path = scratch.file("hole", "");
    if (::truncate(path.c_str(), size) != 0)
      GTEST_SKIP() << "the volume holds no file of " << size << " bytes";
    EXPECT_EQ(sizer().itemSizeAtPath(path), expected) << size;
  }
}

TEST(RVFileSizer, countsBothHardLinksToAFile) {
  ScratchFolder scratch;
  std::string path = oneBlockFile(scratch, "file");
  std::filesystem::create_hard_link(path, scratch.path("link"));
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path()), 2 * allocated(scratch.path()) + 8192);
}

TEST(RVFileSizer, measuresALinkToALargeFileAsTheLink) {
  ScratchFolder scratch;
  scratch.file("large", std::string(1 << 20, 'x'));
  std::filesystem::create_symlink("large", scratch.path("link"));
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path("link")), allocated(scratch.path("link")));
  EXPECT_LT(sizer().itemSizeAtPath(scratch.path("link")), 1u << 20);
  std::filesystem::create_symlink("nothing", scratch.path("dangling"));
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path("dangling")), allocated(scratch.path("dangling")));
}

TEST(RVFileSizer, measuresFIFOsAndSocketsWithoutWaiting) {
  ScratchFolder scratch;
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  scratch.path("s").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path()), blocksByPath(scratch.path()) * 512);
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path("fifo")), 0u);
  ::close(descriptor);
}

TEST(RVFileSizer, countsNothingForACycle) {
  FakeFTS walk;
  NS::FTSEntry &folder = walk.add("/folder", FTSInfo::D, walk.top, {.blocks = 8});
  walk.add("/folder/cycle", FTSInfo::DC, folder, {.blocks = 8});
  walk.again(folder, FTSInfo::DP);
  LogRecorder log;
  EXPECT_EQ(sizer().itemSizeAtPath("/folder"), 8192u);
  EXPECT_TRUE(log.lines().empty());
}

TEST(RVFileSizer, logsUnreadableItemsAndLeavesThemOut) {
  FakeFTS walk;
  NS::FTSEntry &folder = walk.add("/r", FTSInfo::D, walk.top, {.blocks = 1});
  walk.add("/r/denied", FTSInfo::DNR, folder, {.blocks = 8}, EACCES);
  walk.add("/r/broken", FTSInfo::ERR, folder, {.blocks = 8}, EIO);
  walk.add("/r/unknown", FTSInfo::NS, folder, {}, EACCES);
  walk.add("/r/gone", FTSInfo::NS, folder, {}, ENOENT);
  walk.add("/r/file", FTSInfo::F, folder, {.blocks = 8});
  walk.again(folder, FTSInfo::DP);
  LogRecorder log;
  EXPECT_EQ(sizer().itemSizeAtPath("/r"), 10u * 512);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"/r/denied: Permission denied",
                                                   "/r/broken: Input/output error",
                                                   "/r/unknown: Permission denied"}));
}

TEST(RVFileSizer, keepsTheTotalOfAWalkThatCannotBeClosed) {
  FakeFTS walk;
  walk.raisesOnClose = true;
  walk.add("/file", FTSInfo::F, walk.top, {.blocks = 8});
  LogRecorder log;
  EXPECT_EQ(sizer().itemSizeAtPath("/file"), 4096u);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"fts_close exception = cannot close"});
}

TEST(RVFileSizer, measuresAWalkWithoutEntriesAsNothing) {
  FakeFTS walk;
  EXPECT_EQ(sizer().itemSizeAtPath("/nothing"), 0u);
}

TEST(RVFileSizer, leavesOutAFolderThatAnotherUserMayNotRead) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root to become somebody else";
  ScratchFolder scratch;
  std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
  std::filesystem::create_directory(scratch.path("closed"));
  oneBlockFile(scratch, "closed/file");
  std::filesystem::permissions(scratch.path("closed"), std::filesystem::perms(0700));
  // The walk sees it on the way in, before it tries to open it.
  std::uint64_t expected = 2 * allocated(scratch.path()) + allocated(scratch.path("closed"));
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              LogRecorder log;
              std::uint64_t size = sizer().itemSizeAtPath(scratch.path());
              if (size != expected)
                return "measured " + std::to_string(size);
              std::vector<std::string> lines{scratch.path("closed") + ": Permission denied"};
              return log.lines() == lines ? "" : "logged otherwise";
            }),
            "");
}

TEST(RVFileSizer, countsItemsThatVanishDuringTheWalkAsNothing) {
  ScratchFolder scratch;
  for (int index = 0; index < 50; ++index)
    scratch.file(std::to_string(index), "x");
  LogRecorder log;
  std::atomic<bool> done{false};
  std::thread remover([&] {
    for (int index = 0; index < 50; ++index)
      std::filesystem::remove(scratch.path(std::to_string(index)));
    done = true;
  });
  while (!done)
    static_cast<void>(sizer().itemSizeAtPath(scratch.path()));
  remover.join();
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(sizer().itemSizeAtPath(scratch.path()), 2 * allocated(scratch.path()));
}

TEST(RVFileSizer, equalsAComputationFromStatOnAThousandRandomTrees) {
  for (std::uint32_t seed = 1; seed <= 1000; ++seed) {
    ScratchFolder scratch(kwtest::quickFolder());
    kwtest::RandomTree tree(scratch.path(), seed, 40);
    ASSERT_EQ(sizer().itemSizeAtPath(scratch.path()), blocksByPath(scratch.path()) * 512) << seed;
  }
}

TEST(RVFileSizer, equalsThatComputationOnADisk) {
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    ScratchFolder scratch;
    kwtest::RandomTree tree(scratch.path(), seed, 100);
    ::sync();
    ASSERT_EQ(sizer().itemSizeAtPath(scratch.path()), blocksByPath(scratch.path()) * 512) << seed;
  }
}

TEST(RVFileSizer, setsTheBlockSizeOfTheWholeProcess) {
  static_cast<void>(sizer());
  EXPECT_STREQ(::getenv("BLOCKSIZE"), "512");
}

TEST(RVFileSizer, roundsUpToTheBlocksThatTheEnvironmentAsksForAndStillMultipliesBy512) {
  FakeFTS walk;
  walk.add("/file", FTSInfo::F, walk.top, {.blocks = 9});
  // The first use of the class sets the variable.
  EXPECT_EQ(sizer().itemSizeAtPath(""), 0u);
  ::setenv("BLOCKSIZE", "2K", 1);
  EXPECT_EQ(sizer().itemSizeAtPath("/file"), 3u * 512);
  ::setenv("BLOCKSIZE", "512", 1);
}

TEST(RVFileSizer, countsNothingForAnEntryWithMoreLinksThanOne) {
  NS::FTSEntry entry;
  entry.info = FTSInfo::F;
  entry.statp = {.linkCount = 1, .blocks = 8};
  EXPECT_EQ(sizer().itemSizeWithFTSEntry(&entry), 4096u);
  entry.statp.linkCount = 2;
  EXPECT_EQ(sizer().itemSizeWithFTSEntry(&entry), 0u);
  entry.info = FTSInfo::D;
  EXPECT_EQ(sizer().itemSizeWithFTSEntry(&entry), 0u);
  entry.statp.linkCount = 1;
  EXPECT_EQ(sizer().itemSizeWithFTSEntry(&entry), 4096u) << "some volumes count no subfolders";
  EXPECT_EQ(sizer().itemSizeWithFTSEntry(nullptr), 0u);
}

TEST(RVFileSizer, countsNothingForBothLinksInACallersOwnWalk) {
  ScratchFolder scratch;
  std::string path = oneBlockFile(scratch, "file");
  std::filesystem::create_hard_link(path, scratch.path("link"));
  oneBlockFile(scratch, "single");
  auto stream = NS::FTS::shared().open(scratch.path(), NS::FTSOption::PHYSICAL);
  std::uint64_t files = 0;
  while (NS::FTSEntry *entry = stream->read())
    if (entry->info == FTSInfo::F)
      files += sizer().itemSizeWithFTSEntry(entry);
  EXPECT_EQ(files, 4096u);
}

TEST(RVFileSizer, logsAnUnreadableEntryOfACallersOwnWalk) {
  LogRecorder log;
  NS::FTSEntry entry;
  entry.path = "/gone";
  entry.statp = {.linkCount = 1, .blocks = 8};
  entry.errnum = ENOENT;
  for (FTSInfo info : {FTSInfo::NS, FTSInfo::DNR, FTSInfo::ERR, FTSInfo::DC}) {
    entry.info = info;
    EXPECT_EQ(sizer().itemSizeWithFTSEntry(&entry), 0u);
  }
  EXPECT_EQ(log.lines(), std::vector<std::string>(3, "/gone: No such file or directory"));
}

TEST(RVFileSizer, givesBytesForAnEntryInTheUncompressedMode) {
  kwtest::UncompressedMode mode;
  NS::FTSEntry entry;
  entry.info = FTSInfo::F;
  entry.statp = {.linkCount = 1, .size = 5000, .blocks = 2, .blockSize = 4096};
  EXPECT_EQ(sizer().itemSizeWithFTSEntry(&entry), 8192u);
}

TEST(RVFileSizer, measuresInTheBackgroundAndCallsBackThere) {
  ScratchFolder scratch;
  std::string path = oneBlockFile(scratch, "file");
  std::promise<std::pair<std::uint64_t, std::thread::id>> answer;
  sizer().fetchItemSizeAtURL(NS::URL::fileURLWithPath(path), [&](std::uint64_t size) {
    answer.set_value({size, std::this_thread::get_id()});
  });
  auto [size, thread] = answer.get_future().get();
  EXPECT_EQ(size, 4096u);
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST(RVFileSizer, reportsAMissingURLOrBlock) {
  kwtest::AssertionRecorder assertions;
  sizer().fetchItemSizeAtURL(std::nullopt, [](std::uint64_t) { FAIL(); });
  sizer().fetchItemSizeAtURL(NS::URL::fileURLWithPath("/", true), nullptr);
  std::vector<kwtest::AssertionFailure> expected{
      {"Sources/Tools/RVFileSizer", "Invalid parameter not satisfying: url"},
      {"Sources/Tools/RVFileSizer", "Invalid parameter not satisfying: completionBlock"}};
  EXPECT_EQ(assertions.failures, expected);
}

TEST(RVFileSizer, leavesNoDescriptorBehind) {
  ScratchFolder scratch;
  kwtest::RandomTree tree(scratch.path(), 7, 60);
  std::size_t before = kwtest::openDescriptorCount();
  for (int round = 0; round < 20; ++round) {
    sizer().itemSizeAtPath(scratch.path());
    sizer().itemSizeAtPathAbleToStop(scratch.path());
    sizer().alternativeItemSizeAtPath(scratch.path());
  }
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
}

TEST(RVFileSizer, letsADerivedClassReplaceTheWalk) {
  struct Doubled final : RVFileSizer {
    std::uint64_t originalItemSizeAtPath(const std::string & /*path*/) const override { return 7; }
  };
  EXPECT_EQ(Doubled().itemSizeAtPath("/x"), 7u);
  EXPECT_EQ(Doubled().itemSizeAtURL(NS::URL::fileURLWithPath("/x", false)), 7u);
}

} // namespace
