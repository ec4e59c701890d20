// The parts of removal, unlocking and copying that only macOS has, over the shim
// of its calls.
#include "Darwin/Shim.h"

#include "Foundation/Files/FileFlags.h"
#include "Foundation/Files/POSIX/ItemCalls.h"
#include "Foundation/Trees/FileManager.h"
#include "Foundation/Trees/POSIX/CopyCalls.h"
#include "Support/LockedItem.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::Descriptor;
using NS::ItemStatus;
using NS::Links;

constexpr std::uint32_t restrictedAndHidden = NS::SF_RESTRICTED_FLAG | NS::UF_HIDDEN_FLAG;

Descriptor opened(const std::string &path) {
  return Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

struct stat statusOf(const std::string &path) {
  struct stat status {};
  ::lstat(path.c_str(), &status);
  return status;
}

std::uint32_t flagsOf(const std::string &path) {
  NS::FileStatus status;
  EXPECT_EQ(NS::FileFlags::shared().status(path, status), 0);
  return status.flags;
}

// The error of a copy, 0 for success.
std::int64_t copyCode(const std::string &from, const std::string &to) {
  std::optional<NS::Error> error;
  if (NS::FileManager::defaultManager().copyItemAtPath(from, to, &error))
    return 0;
  return error ? error->code() : -1;
}

TEST(ItemCalls, clearTheOwnersFlagsAndKeepAllOthers) {
  kwtest::darwin::ShimScope shim;
  ScratchFolder scratch;
  std::string path = scratch.file("file", "");
  shim->otherFlags[statusOf(path).st_ino] = NS::UF_APPEND_FLAG | restrictedAndHidden;
  EXPECT_EQ(NS::FileFlags::shared().clear(path, NS::UF_APPEND_FLAG | NS::UF_IMMUTABLE_FLAG), 0);
  EXPECT_EQ(flagsOf(path), restrictedAndHidden);
}

TEST(ItemCalls, tellAFolderFromALockedItem) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  Descriptor place = opened(scratch.path());
  EXPECT_EQ(NS::itemcalls::unlink(place.get(), "folder"), EISDIR);
  EXPECT_EQ(NS::itemcalls::unlink(place.get(), "missing"), ENOENT);
  kwtest::darwin::ShimScope shim;
  shim->otherFlags[statusOf(scratch.path("folder")).st_ino] = NS::UF_IMMUTABLE_FLAG;
  EXPECT_EQ(NS::itemcalls::unlink(place.get(), "folder"), EPERM);
  EXPECT_TRUE(fs::exists(scratch.path("folder")));
}

TEST(ItemCalls, tellWhereVolumesAreMounted) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("mounted"));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::mountMemory(scratch.path("mounted")))
                return "no mount";
              fs::create_directory(scratch.path("mounted/plain"));
              Descriptor place = opened(scratch.path()), mounted = opened(scratch.path("mounted"));
              Descriptor root = opened("/");
              auto isMount = [](int folder, const char *name) {
                ItemStatus status;
                return NS::itemcalls::readStatus(folder, name, Links::Take, status) == 0 &&
                       status.isMountPoint;
              };
              if (!isMount(place.get(), "mounted") || !isMount(mounted.get(), "") ||
                  !isMount(root.get(), ""))
                return "a mount point is none";
              return isMount(mounted.get(), "plain") || isMount(place.get(), "") ? "a plain folder"
                                                                                 : "";
            }),
            "");
}

TEST(MoveOnAVolumeWithoutExclusiveRenames, replacesNothing) {
  kwtest::darwin::ShimScope shim;
  shim->exclusiveRenames = false;
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  fs::create_directory(scratch.path("there"));
  std::string file = scratch.file("file", "content");
  auto moveCode = [&](const std::string &from, const char *to) {
    std::optional<NS::Error> error;
    bool moved = NS::FileManager::defaultManager().moveItemAtPath(from, scratch.path(to), &error);
    return moved ? 0 : error->code();
  };
  EXPECT_EQ(moveCode(file, "there"), NS::FileWriteFileExistsError);
  EXPECT_EQ(moveCode(scratch.path("folder"), "there"), NS::FileWriteFileExistsError);
  // Nothing is known of the target then.
  shim->withoutStatus.insert("there");
  EXPECT_NE(moveCode(scratch.path("folder"), "there"), 0);
  EXPECT_TRUE(fs::exists(scratch.path("folder")));
  fs::remove_all(scratch.path("there"));
  EXPECT_EQ(moveCode(file, "new file"), 0);
  EXPECT_EQ(moveCode(scratch.path("folder"), "new folder"), 0);
  EXPECT_EQ(scratch.content("new file"), "content");
  EXPECT_TRUE(fs::is_directory(scratch.path("new folder")));
}

TEST(CopyCalls, cloneFilesWithoutTheirFlags) {
  kwtest::darwin::ShimScope shim;
  ScratchFolder scratch;
  std::string file = scratch.file("file", "content"), copy = scratch.path("copy");
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  shim->otherFlags[statusOf(file).st_ino] = restrictedAndHidden;
  ASSERT_EQ(copyCode(file, copy), 0);
  EXPECT_EQ(shim->cloned, 1);
  EXPECT_EQ(scratch.content("copy"), "content");
  EXPECT_EQ(statusOf(copy).st_mode, S_IFREG | 0640u);
  EXPECT_EQ(statusOf(copy).st_mtim.tv_nsec, statusOf(file).st_mtim.tv_nsec);
  EXPECT_EQ(flagsOf(copy), 0u);
}

TEST(CopyCalls, copyTheDataWhereTheVolumeHasNoClones) {
  kwtest::darwin::ShimScope shim;
  shim->clones = false;
  ScratchFolder scratch;
  ASSERT_EQ(copyCode(scratch.file("file", "content"), scratch.path("copy")), 0);
  EXPECT_EQ(shim->cloned, 0);
  EXPECT_EQ(scratch.content("copy"), "content");
}

// The platform's own copying refuses these too.
TEST(CopyCalls, refuseNodesOtherThanLinksAndLeaveNothing) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  fs::create_symlink("missing", scratch.path("folder/link"));
  ASSERT_EQ(copyCode(scratch.path("folder"), scratch.path("copy")), 0);
  EXPECT_EQ(fs::read_symlink(scratch.path("copy/link")), "missing");
  ASSERT_EQ(::mkfifo(scratch.path("folder/fifo").c_str(), 0600), 0);
  Descriptor place = opened(scratch.path("folder"));
  EXPECT_FALSE(NS::copycalls::openNode(place.get(), "fifo")) << "opening can have effects";
  EXPECT_EQ(errno, ENOTSUP);
  EXPECT_NE(copyCode(scratch.path("folder"), scratch.path("other")), 0);
  EXPECT_FALSE(fs::exists(scratch.path("other")));
  EXPECT_FALSE(fs::exists(scratch.path(".keepwell-copy-00")));
}

TEST(CopyCalls, noticeALinkThatTookAnothersPlace) {
  ScratchFolder scratch;
  fs::create_symlink("one", scratch.path("link"));
  fs::create_symlink("two", scratch.path("other"));
  Descriptor place = opened(scratch.path());
  Descriptor link = NS::copycalls::openNode(place.get(), "link");
  std::string target;
  EXPECT_EQ(NS::copycalls::readLink(link.get(), place.get(), "link", target), 0);
  EXPECT_EQ(target, "one");
  EXPECT_EQ(NS::copycalls::readLink(link.get(), place.get(), "other", target), ESTALE);
  EXPECT_EQ(NS::copycalls::readLink(link.get(), place.get(), "missing", target), ESTALE);
  scratch.file("file", "");
  EXPECT_EQ(NS::copycalls::readLink(link.get(), place.get(), "file", target), ESTALE);
}

} // namespace
