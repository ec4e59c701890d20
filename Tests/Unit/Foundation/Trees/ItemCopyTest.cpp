// Copies of single items, on volumes that lack a call and while the items change.
#include "Foundation/Trees/POSIX/ItemCopy.h"

#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Support/MissingCall.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"
#include "Support/SpecialItems.h"
#include "Support/WatchedCalls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::Descriptor;
using NS::ItemStatus;
using NS::StepOutcome;

Descriptor openFolder(const ScratchFolder &scratch) {
  return Descriptor(::open(scratch.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Copies so much data of the item at the path into the file "copy".
StepOutcome copyDataOf(const std::string &path, const ScratchFolder &scratch, std::size_t size) {
  Descriptor source(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  Descriptor target(::open(scratch.path("copy").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  errno = 0;
  return NS::copyData(source.get(), target.get(), static_cast<off_t>(size));
}

// Copies the file in a child where the call for a range of data gives this errno
// value, or, with 0, copies nothing. Returns that of the copy.
std::string copyWithoutRanges(const ScratchFolder &scratch, int errnum, std::size_t size) {
  return kwtest::inForkedChild([&]() -> std::string {
    if (!kwtest::refuseCalls(SYS_copy_file_range, errnum))
      return "the call cannot be taken away";
    return std::to_string(copyDataOf(scratch.path("file"), scratch, size).errnum());
  });
}

// One byte more than the pieces that are read.
const std::string &contentOfSeveralPieces() {
  static const std::string content = std::string(256 * 1024, 'x') + "z";
  return content;
}

TEST(CopyData, isWholeWhereNoRangesCanBeCopied) {
  const std::string &content = contentOfSeveralPieces();
  for (int errnum : {0, EXDEV, EINVAL, ENOSYS, EOPNOTSUPP, EPERM, EBADF}) {
    ScratchFolder scratch;
    scratch.file("file", content);
    EXPECT_EQ(copyWithoutRanges(scratch, errnum, content.size()), "0") << errnum;
    EXPECT_TRUE(scratch.content("copy") == content) << errnum;
  }
}

TEST(CopyData, failsWhenTheVolumeFails) {
  ScratchFolder scratch;
  scratch.file("file", "content");
  EXPECT_EQ(copyWithoutRanges(scratch, EIO, 7), std::to_string(EIO));
}

TEST(CopyData, leavesOutDataThatWasAppended) {
  const std::string &content = contentOfSeveralPieces();
  for (int errnum : {0, EXDEV}) {
    ScratchFolder scratch;
    scratch.file("file", content + std::string(100'000, 'y'));
    EXPECT_EQ(copyWithoutRanges(scratch, errnum, content.size()), "0");
    EXPECT_TRUE(scratch.content("copy") == content) << fs::file_size(scratch.path("copy"));
  }
  ScratchFolder scratch;
  EXPECT_TRUE(copyDataOf(scratch.file("file", "content and more"), scratch, 7).isDone());
  EXPECT_EQ(scratch.content("copy"), "content");
}

// The folder of processes is one; its files have no holes that can be asked for.
TEST(CopyData, endsWithTheFileOnAVolumeThatTellsNoSizes) {
  ScratchFolder scratch;
  std::ifstream stream("/proc/version");
  std::string version{std::istreambuf_iterator<char>(stream), {}};
  constexpr std::size_t more = 100;
  EXPECT_TRUE(copyDataOf("/proc/version", scratch, version.size() + more).isDone());
  EXPECT_EQ(scratch.content("copy"), version + std::string(more, '\0'));
}

TEST(CopyData, isWholeAfterThatOfAFileWhichEndsInAHole) {
  ScratchFolder scratch;
  Descriptor holes(::open(scratch.file("holes", "").c_str(), O_RDWR | O_CLOEXEC));
  Descriptor file(::open(scratch.file("file", "content").c_str(), O_RDONLY | O_CLOEXEC));
  Descriptor copy(::open(scratch.file("copy", "").c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::ftruncate(holes.get(), 1 << 20), 0);
  EXPECT_TRUE(NS::copyData(holes.get(), copy.get(), 1 << 20).isDone());
  EXPECT_TRUE(NS::copyData(file.get(), copy.get(), 7).isDone());
  EXPECT_EQ(scratch.content("copy"), "content");
}

TEST(CopyData, keepsHolesAsHolesOnOneVolume) {
  ScratchFolder scratch;
  std::string path = scratch.file("sparse", "");
  fs::resize_file(path, 4ull << 30);
  std::fstream(path, std::ios::in | std::ios::out).seekp(1 << 30) << "middle";
  EXPECT_TRUE(copyDataOf(path, scratch, 4ull << 30).isDone());
  struct stat status {};
  ASSERT_EQ(::stat(scratch.path("copy").c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 4ll << 30);
  EXPECT_LE(status.st_blocks, 64);
  std::ifstream stream(scratch.path("copy"));
  std::string text(6, ' ');
  stream.seekg(1 << 30).read(text.data(), 6);
  EXPECT_EQ(text, "middle");
}

using CopyCall = decltype(&NS::copyFile);

// Copies the item "item" to "copy", as one that was of this kind a moment ago.
StepOutcome copyItem(const ScratchFolder &scratch, CopyCall copy, ItemStatus &status) {
  Descriptor folder = openFolder(scratch);
  NS::LeftOut leftOut;
  return copy(folder.get(), "item", folder.get(), "copy", status, leftOut);
}

bool isExchangedFor(CopyCall copy, mode_t formerKind,
                    const std::function<void(const std::string &path)> &make) {
  ScratchFolder scratch;
  make(scratch.path("item"));
  ItemStatus status;
  status.mode = formerKind;
  StepOutcome outcome = copyItem(scratch, copy, status);
  EXPECT_FALSE(fs::exists(fs::symlink_status(scratch.path("copy"))));
  return outcome.isExchanged();
}

TEST(ItemCopy, tellsThatTheItemWasExchangedForOneOfAnotherKind) {
  auto makeFile = [](const std::string &path) { std::ofstream(path) << "text"; };
  auto makeLink = [](const std::string &path) { fs::create_symlink("elsewhere", path); };
  auto makeFolder = [](const std::string &path) { fs::create_directory(path); };
  auto makeFIFO = [](const std::string &path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); };
  auto makeSocket = [](const std::string &path) { ASSERT_TRUE(kwtest::makeSocket(path)); };
  EXPECT_TRUE(isExchangedFor(NS::copyFile, S_IFREG, makeLink));
  EXPECT_TRUE(isExchangedFor(NS::copyFile, S_IFREG, makeFolder));
  EXPECT_TRUE(isExchangedFor(NS::copyFile, S_IFREG, makeFIFO));
  EXPECT_TRUE(isExchangedFor(NS::copyFile, S_IFREG, makeSocket));
  EXPECT_TRUE(isExchangedFor(NS::copyNode, S_IFLNK, makeFile));
  EXPECT_TRUE(isExchangedFor(NS::copyNode, S_IFIFO, makeLink));
}

// As a volume of a network tells of a link that is gone.
TEST(ItemCopy, tellsThatALinkWasExchangedBeforeItWasRead) {
  ScratchFolder scratch;
  fs::create_symlink("elsewhere", scratch.path("item"));
  for (int errnum : {ESTALE, EIO})
    EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
                if (!kwtest::refuseCalls(SYS_readlinkat, errnum))
                  return "links can still be read";
                ItemStatus status;
                status.mode = S_IFLNK;
                StepOutcome outcome = copyItem(scratch, NS::copyNode, status);
                if (outcome.errnum() != errnum)
                  return "another error";
                return outcome.isExchanged() == (errnum == ESTALE) ? "" : "taken for another";
              }),
              "")
        << errnum;
}

ItemStatus statusOf(const ScratchFolder &scratch, const char *name) {
  ItemStatus status;
  EXPECT_TRUE(NS::readStatus(openFolder(scratch).get(), name, status).isDone());
  return status;
}

TEST(ItemCopy, expectsAnUnnoticedChangeUntilTheClockIsPastTheLastOne) {
  constexpr long millisecond = 1'000'000;
  timespec last{1000, 999 * millisecond};
  EXPECT_TRUE(NS::mayChangeUnnoticed(last, last));
  EXPECT_FALSE(NS::mayChangeUnnoticed(last, {1000, last.tv_nsec + 1}));
  EXPECT_FALSE(NS::mayChangeUnnoticed(last, {1001, 0}));
  EXPECT_FALSE(NS::mayChangeUnnoticed(last, {1002, 0}));
  EXPECT_TRUE(NS::mayChangeUnnoticed(last, {1000, 995 * millisecond}));
  EXPECT_TRUE(NS::mayChangeUnnoticed({1001, millisecond}, last)) << "in the next second";
}

TEST(ItemCopy, expectsNoUnnoticedChangeOfAnItemFromTheFuture) {
  constexpr long millisecond = 1'000'000;
  EXPECT_TRUE(NS::mayChangeUnnoticed({1000, 100 * millisecond}, {1000, 0}));
  EXPECT_FALSE(NS::mayChangeUnnoticed({1000, 100 * millisecond + 1}, {1000, 0}));
  EXPECT_FALSE(NS::mayChangeUnnoticed({1001, 0}, {1000, 0}));
  EXPECT_FALSE(NS::mayChangeUnnoticed({1002, 0}, {1000, 0}));
  EXPECT_FALSE(NS::mayChangeUnnoticed({std::numeric_limits<time_t>::max(), 0}, {1000, 0}));
  EXPECT_FALSE(NS::mayChangeUnnoticed({std::numeric_limits<time_t>::min(), 0}, {1000, 0}));
}

// In memory of this kind an item has the time of the clock's last tick.
TEST(ItemCopy, knowsAFileThatChangesRightAfterItByItsTimeOfChange) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (::mount("ramfs", scratch.path().c_str(), "ramfs", 0, nullptr) != 0)
                return "no mount";
              for (int turn = 0; turn < 50; ++turn) {
                scratch.file("item", "sooner");
                ItemStatus status;
                if (copyItem(scratch, NS::copyFile, status).isFailed())
                  return "not copied";
                scratch.file("item", "later!");
                ItemStatus later = statusOf(scratch, "item");
                if (later.changed.tv_sec == status.changed.tv_sec &&
                    later.changed.tv_nsec == status.changed.tv_nsec)
                  return "the change cannot be told";
                fs::remove(scratch.path("copy"));
              }
              return "";
            }),
            "");
}

TEST(ItemCopy, doesNotWaitForTheClockWhenTheFileChangedLongAgo) {
  ScratchFolder scratch;
  scratch.file("item", "content");
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              std::atomic<int> waits{0};
              if (!kwtest::beforeCalls(SYS_clock_nanosleep, [&](const auto &) { ++waits; }))
                return "the calls cannot be watched";
              ItemStatus status;
              if (copyItem(scratch, NS::copyFile, status).isFailed())
                return "not copied";
              fs::remove(scratch.path("copy"));
              waits = 0;
              if (copyItem(scratch, NS::copyFile, status).isFailed())
                return "not copied again";
              return waits == 0 ? "" : std::to_string(waits) + " waits";
            }),
            "");
}

} // namespace
