// The calls on single items, by the folder that holds them.
#include "Foundation/Files/POSIX/ItemCalls.h"

#include "Support/LockedItem.h"
#include "Support/MissingCall.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
namespace itemcalls = NS::itemcalls;
using kwtest::LockedItem;
using kwtest::ScratchFolder;
using NS::Links;

int cleared(const std::string &path, Links links = Links::Take) {
  return itemcalls::clearFlags(AT_FDCWD, path.c_str(), links, NS::SF_IMMUTABLE_FLAG);
}

TEST(ItemCalls, clearNothingOfAnItemWithoutTheFlags) {
  ScratchFolder scratch;
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  fs::create_symlink("fifo", scratch.path("link"));
  EXPECT_EQ(cleared(scratch.path("fifo")), 0);
  EXPECT_EQ(cleared(scratch.path("link")), 0);
  EXPECT_EQ(cleared(scratch.path("link"), Links::Follow), 0);
  EXPECT_EQ(cleared("/proc/self/status"), 0) << "the volume knows no flags";
  EXPECT_EQ(cleared(scratch.path("missing")), ENOENT);
}

TEST(ItemCalls, keepFlagsThatOnlyTheVolumeKnows) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "");
  LockedItem locked(path, FS_IMMUTABLE_FL | FS_SECRM_FL);
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(cleared(path), 0);
  EXPECT_EQ(kwtest::inodeFlags(path) & (FS_IMMUTABLE_FL | FS_SECRM_FL), FS_SECRM_FL);
}

TEST(ItemCalls, tellWhyTheFlagsCannotBeRead) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", "");
  LockedItem locked(path);
  KW_REQUIRE_LOCKED(locked);
  auto clearedWith = [&](int failure) {
    return kwtest::inForkedChild([&]() -> std::string {
      if (!kwtest::refuseCalls(SYS_ioctl, failure))
        return "the call still works";
      return std::to_string(cleared(path));
    });
  };
  EXPECT_EQ(clearedWith(EIO), std::to_string(EIO));
  EXPECT_EQ(clearedWith(ENOTTY), std::to_string(EOPNOTSUPP)) << "a volume without such a call";
}

TEST(ItemCalls, renameWithoutReplacing) {
  ScratchFolder scratch;
  std::string from = scratch.file("from", "x"), to = scratch.file("to", "y");
  auto renamed = [&](const std::string &target) {
    return itemcalls::renameExclusively(AT_FDCWD, from.c_str(), AT_FDCWD, target.c_str());
  };
  EXPECT_EQ(renamed(to), EEXIST);
  EXPECT_EQ(renamed(scratch.path("no/folder")), ENOENT);
  EXPECT_EQ(scratch.content("to"), "y");
  for (int failure : {EINVAL, ENOSYS})
    EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
                if (!kwtest::refuseCalls(SYS_renameat2, failure))
                  return "the call still works";
                return std::to_string(renamed(scratch.path("new")));
              }),
              std::to_string(ENOTSUP));
  EXPECT_EQ(renamed(scratch.path("new")), 0);
  EXPECT_EQ(scratch.content("new"), "x");
}

TEST(ItemCalls, removeFilesAndLinksButNoFolder) {
  ScratchFolder scratch;
  std::string file = scratch.file("file", "");
  fs::create_directory(scratch.path("folder"));
  fs::create_directory_symlink("folder", scratch.path("link"));
  EXPECT_EQ(itemcalls::unlink(AT_FDCWD, file.c_str()), 0);
  EXPECT_EQ(itemcalls::unlink(AT_FDCWD, file.c_str()), ENOENT);
  EXPECT_EQ(itemcalls::unlink(AT_FDCWD, scratch.path("link").c_str()), 0);
  EXPECT_EQ(itemcalls::unlink(AT_FDCWD, scratch.path("folder").c_str()), EISDIR);
  EXPECT_TRUE(fs::exists(scratch.path("folder")));
}

TEST(ItemCalls, tellMountPointsFromOtherFolders) {
  ScratchFolder scratch;
  NS::ItemStatus status;
  ASSERT_EQ(itemcalls::readStatus(AT_FDCWD, scratch.path().c_str(), Links::Take, status), 0);
  EXPECT_FALSE(status.isMountPoint);
  ASSERT_EQ(itemcalls::readStatus(AT_FDCWD, "/proc", Links::Take, status), 0);
  EXPECT_TRUE(status.isMountPoint);
}

} // namespace
