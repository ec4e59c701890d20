// Moving on one volume and across two.
#include "Foundation/Trees/FileManager.h"

#include "Support/ForkedChild.h"
#include "Support/LockedItem.h"
#include "Support/LogRecorder.h"
#include "Support/MoveCode.h"
#include "Support/PrivateMounts.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace {

namespace fs = std::filesystem;
using kwtest::LockedItem;
using kwtest::moveCode;
using kwtest::ScratchFolder;
using kwtest::withPrivateMounts;

NS::FileManager &manager() {
  return NS::FileManager::defaultManager();
}

// All that a move must keep of every item of a tree, a line for each.
std::string portrait(const std::string &root) {
  std::vector<std::string> lines;
  auto describe = [&](const std::string &path) {
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0)
      return;
    std::string line = path.substr(root.size());
    for (long long number :
         {static_cast<long long>(status.st_mode), static_cast<long long>(status.st_uid),
          static_cast<long long>(status.st_gid), static_cast<long long>(status.st_rdev),
          static_cast<long long>(S_ISDIR(status.st_mode) ? 0 : status.st_nlink),
          static_cast<long long>(S_ISDIR(status.st_mode) ? 0 : status.st_size),
          static_cast<long long>(status.st_mtim.tv_sec),
          static_cast<long long>(status.st_mtim.tv_nsec)})
      line += std::string(" ") + std::to_string(number);
    if (S_ISLNK(status.st_mode))
      line += " -> " + fs::read_symlink(path).string();
    char value[64];
    ssize_t size = ::lgetxattr(path.c_str(), "user.test", value, sizeof value);
    if (size >= 0)
      line += std::string(" user.test=") + std::string(value, static_cast<std::size_t>(size));
    if (S_ISREG(status.st_mode) && status.st_size < 100'000) {
      std::ifstream stream(path, std::ios::binary);
      line += std::string(" ") + std::to_string(std::hash<std::string>()(
                                     std::string(std::istreambuf_iterator<char>(stream), {})));
    }
    lines.push_back(std::move(line));
  };
  describe(root);
  if (fs::is_directory(fs::symlink_status(root)))
    for (const auto &entry : fs::recursive_directory_iterator(root))
      describe(entry.path());
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string &line : lines)
    text += line + "\n";
  return text;
}

// A tree with every kind of item, odd owners, modes, times and attributes.
void makeVariedTree(const std::string &root) {
  fs::create_directory(root);
  kwtest::RandomTree tree(root, 7, 300);
  std::uint32_t number = 0;
  for (const auto &entry : fs::recursive_directory_iterator(root)) {
    const char *path = entry.path().c_str();
    ++number;
    [[maybe_unused]] int ignored = ::lchown(path, number % 7, number % 5);
    if (entry.symlink_status().type() != fs::file_type::symlink)
      ignored = ::chmod(path, number % 2 ? 04751 : 0640);
    ignored = ::setxattr(path, "user.test", "value", number % 6, 0);
  }
  // Times last, and from the leaves up, or they would be overwritten.
  std::vector<std::string> paths;
  for (const auto &entry : fs::recursive_directory_iterator(root))
    paths.push_back(entry.path());
  for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
    struct timespec times[2] = {{5, 1}, {static_cast<time_t>(path->size()) * 1000, 123456789}};
    [[maybe_unused]] int ignored = ::utimensat(AT_FDCWD, path->c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
}

// No copy, whole or half, beside the destination.
bool isEmptyFolder(const std::string &path) {
  return fs::is_empty(path);
}

TEST(MoveItem, renamesOnOneVolume) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("a"));
  scratch.file("a/file", "content");
  struct stat before, after;
  ASSERT_EQ(::stat(scratch.path("a").c_str(), &before), 0);
  EXPECT_EQ(moveCode(scratch.path("a"), scratch.path("b")), 0);
  ASSERT_EQ(::stat(scratch.path("b").c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_FALSE(fs::exists(scratch.path("a")));
}

TEST(MoveItem, movesALinkItself) {
  ScratchFolder scratch;
  fs::create_directory_symlink("/etc", scratch.path("link"));
  EXPECT_EQ(moveCode(scratch.path("link/"), scratch.path("moved/")), 0);
  EXPECT_EQ(fs::read_symlink(scratch.path("moved")), "/etc");
}

TEST(MoveItem, replacesNothing) {
  ScratchFolder scratch;
  scratch.file("a", "new");
  scratch.file("b", "old");
  fs::create_directory(scratch.path("empty"));
  fs::create_symlink("missing", scratch.path("dangling"));
  for (const char *name : {"b", "empty", "dangling", "a"})
    EXPECT_EQ(moveCode(scratch.path("a"), scratch.path(name)), NS::FileWriteFileExistsError)
        << name;
  EXPECT_EQ(scratch.content("b"), "old");
  EXPECT_EQ(scratch.content("a"), "new");
}

TEST(MoveItem, reportsAMissingSourceAndAMissingFolder) {
  ScratchFolder scratch;
  scratch.file("a", "");
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().moveItemAtPath(scratch.path("missing"), scratch.path("b"), &error));
  EXPECT_EQ(error->code(), NS::FileNoSuchFileError);
  EXPECT_EQ(std::get<std::string>(error->userInfo().at("NSFilePath")), scratch.path("missing"));
  EXPECT_EQ(moveCode(scratch.path("a"), scratch.path("none/b")), NS::FileNoSuchFileError);
  EXPECT_EQ(moveCode("", scratch.path("b")), NS::FileNoSuchFileError);
  EXPECT_EQ(moveCode(scratch.path("a"), ""), NS::FileNoSuchFileError);
}

TEST(MoveItem, refusesAFolderIntoItself) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("a/b"));
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().moveItemAtPath(scratch.path("a"), scratch.path("a/b/c"), &error));
  EXPECT_EQ(error->underlyingError()->code(), EINVAL);
  EXPECT_FALSE(manager().copyItemAtPath(scratch.path("a"), scratch.path("a/b/c"), &error));
  EXPECT_EQ(error->underlyingError()->code(), EINVAL);
  EXPECT_EQ(std::get<std::string>(error->userInfo().at("NSFilePath")), scratch.path("a/b/c"));
  EXPECT_TRUE(isEmptyFolder(scratch.path("a/b")));
}

TEST(MoveItem, refusesTheRootAndPathsThatEndInDots) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("a"));
  EXPECT_NE(moveCode("/", scratch.path("b")), 0);
  EXPECT_NE(moveCode(scratch.path("a/."), scratch.path("b")), 0);
  EXPECT_NE(moveCode(scratch.path("a/.."), scratch.path("b")), 0);
  EXPECT_TRUE(fs::exists(scratch.path("a")));
}

TEST(MoveItem, movesLockedItemsThatAreNotTheRootOfTheMove) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("a"));
  scratch.file("a/locked", "content");
  LockedItem locked(scratch.path("a/locked"));
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(moveCode(scratch.path("a"), scratch.path("b")), 0);
  LockedItem moved(scratch.path("b/locked"));
  EXPECT_EQ(moveCode(scratch.path("b/locked"), scratch.path("c")), NS::FileWriteNoPermissionError);
}

TEST(MoveAcross, keepsEverythingOfATree) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  std::size_t before = kwtest::openDescriptorCount();
  EXPECT_EQ(
      withPrivateMounts([&]() -> std::string {
        fs::create_directory(scratch.path("other"));
        if (!kwtest::mountMemory(scratch.path("other")))
          return "no mount";
        makeVariedTree(scratch.path("tree"));
        std::string wanted = portrait(scratch.path("tree"));
        std::size_t descriptors = kwtest::openDescriptorCount();
        std::optional<NS::Error> error;
        if (!manager().moveItemAtPath(scratch.path("tree"), scratch.path("other/tree"), &error))
          return error->description();
        if (fs::exists(scratch.path("tree")))
          return "the source is still there";
        if (kwtest::openDescriptorCount() != descriptors)
          return "a descriptor was left open";
        if (std::distance(fs::directory_iterator(scratch.path("other")), {}) != 1)
          return "something was left beside the copy";
        std::string got = portrait(scratch.path("other/tree"));
        return got == wanted ? "" : "wanted\n" + wanted + "got\n" + got;
      }),
      "");
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
}

TEST(MoveAcross, keepsHolesAsHoles) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(withPrivateMounts([&]() -> std::string {
              fs::create_directory(scratch.path("other"));
              if (!kwtest::mountMemory(scratch.path("other"), "size=4m"))
                return "no mount";
              std::string path = scratch.file("sparse", "begin");
              fs::resize_file(path, 8ull << 30);
              std::fstream(path, std::ios::in | std::ios::out).seekp((1ll << 32)) << "middle";
              if (moveCode(path, scratch.path("other/sparse")) != 0)
                return "not moved";
              struct stat status;
              ::stat(scratch.path("other/sparse").c_str(), &status);
              if (status.st_size != 8ll << 30 || status.st_blocks > 64)
                return std::to_string(status.st_blocks) + " blocks";
              std::ifstream stream(scratch.path("other/sparse"));
              std::string text(6, ' ');
              stream.seekg(1ll << 32).read(text.data(), 6);
              return text == "middle" ? "" : "wrong data";
            }),
            "");
}

TEST(MoveAcross, leavesTheSourceWholeAndNothingElseWhenTheVolumeIsFull) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(withPrivateMounts([&]() -> std::string {
              fs::create_directory(scratch.path("other"));
              if (!kwtest::mountMemory(scratch.path("other"), "size=1m"))
                return "no mount";
              fs::create_directory(scratch.path("tree"));
              for (char name : {'a', 'b', 'c'})
                scratch.file(std::string("tree/") + name, std::string(600'000, name));
              std::string wanted = portrait(scratch.path("tree"));
              if (moveCode(scratch.path("tree"), scratch.path("other/tree")) !=
                  NS::FileWriteOutOfSpaceError)
                return "another error";
              if (!isEmptyFolder(scratch.path("other")))
                return "a part of the copy was left";
              return portrait(scratch.path("tree")) == wanted ? "" : "the source was touched";
            }),
            "");
}

TEST(MoveAcross, replacesNothing) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(withPrivateMounts([&]() -> std::string {
              fs::create_directory(scratch.path("other"));
              if (!kwtest::mountMemory(scratch.path("other")))
                return "no mount";
              scratch.file("other/b", "old");
              if (moveCode(scratch.file("a", "new"), scratch.path("other/b")) !=
                  NS::FileWriteFileExistsError)
                return "another error";
              return scratch.content("other/b") == "old" ? "" : "replaced";
            }),
            "");
}

TEST(MoveAcross, copiesNothingThatCouldNotBeRemovedAfterwards) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("tree/mounted"));
  LockedItem locked(scratch.file("tree/locked", ""));
  KW_REQUIRE_LOCKED(locked);
  EXPECT_EQ(withPrivateMounts([&]() -> std::string {
              fs::create_directory(scratch.path("other"));
              fs::create_directory(scratch.path("readonly"));
              if (!kwtest::mountMemory(scratch.path("other")) ||
                  !kwtest::mountMemory(scratch.path("readonly")))
                return "no mount";
              if (moveCode(scratch.path("tree"), scratch.path("other/tree")) !=
                  NS::FileWriteNoPermissionError)
                return "a locked item: another error";
              fs::create_directories(scratch.path("second/mounted"));
              if (!kwtest::mountMemory(scratch.path("second/mounted")))
                return "no mount";
              scratch.file("second/mounted/file", "kept");
              for (const char *name : {"second", "second/mounted"})
                if (moveCode(scratch.path(name), scratch.path("other/tree")) !=
                    NS::FileWriteUnknownError)
                  return "a mount point: another error";
              scratch.file("readonly/file", "kept");
              if (!kwtest::makeReadOnly(scratch.path("readonly")))
                return "not read-only";
              if (moveCode(scratch.path("readonly/file"), scratch.path("other/file")) !=
                  NS::FileWriteVolumeReadOnlyError)
                return "a read-only volume: another error";
              if (moveCode(scratch.file("plain", ""), scratch.path("readonly/plain")) !=
                  NS::FileWriteVolumeReadOnlyError)
                return "to a read-only volume: another error";
              if (scratch.content("second/mounted/file") != "kept")
                return "the mounted file is gone";
              return isEmptyFolder(scratch.path("other")) ? "" : "a copy was left";
            }),
            "");
}

TEST(MoveAcross, movesTreesDeeperThanAnyPathWithFewDescriptors) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(
      withPrivateMounts([&]() -> std::string {
        for (const char *name : {"one", "two"}) {
          fs::create_directory(scratch.path(name));
          if (!kwtest::mountMemory(scratch.path(name)))
            return "no mount";
        }
        fs::create_directory(scratch.path("one/root"));
        kwtest::DeepChain chain(scratch.path("one/root"), 20'000, "folder");
        kwtest::limitDescriptors(64);
        std::optional<NS::Error> error;
        if (!manager().moveItemAtPath(scratch.path("one/root"), scratch.path("two/root"), &error))
          return error->description();
        auto enumerator = manager().enumeratorAtPath(scratch.path("two/root"));
        std::size_t count = 0;
        while (enumerator->nextObject())
          ++count;
        return count == 20'000 ? "" : std::to_string(count) + " levels";
      }),
      "");
}

TEST(CopyItem, keepsEverythingOfATreeAndTheTreeItself) {
  KW_REQUIRE_ROOT(); // which can read folders of any mode
  ScratchFolder scratch;
  makeVariedTree(scratch.path("tree"));
  std::string wanted = portrait(scratch.path("tree"));
  std::optional<NS::Error> error;
  ASSERT_TRUE(manager().copyItemAtPath(scratch.path("tree"), scratch.path("copy"), &error))
      << error->description();
  EXPECT_EQ(portrait(scratch.path("copy")), wanted);
  EXPECT_EQ(portrait(scratch.path("tree")), wanted);
}

TEST(CopyItem, reportsAMissingSourceAsAReadingError) {
  ScratchFolder scratch;
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().copyItemAtPath(scratch.path("missing"), scratch.path("copy"), &error));
  EXPECT_EQ(error->code(), NS::FileReadNoSuchFileError);
}

// A file that was exchanged for another kind of item fails in another way.
TEST(CopyItem, tellsThatAFileCannotBeRead) {
  ScratchFolder scratch;
  std::string file = scratch.file("file", "text");
  std::filesystem::permissions(scratch.path(), std::filesystem::perms(0777));
  std::filesystem::permissions(file, std::filesystem::perms::none);
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              std::optional<NS::Error> error;
              if (manager().copyItemAtPath(file, scratch.path("copy"), &error))
                return "it was copied";
              const NS::Error *cause = error->underlyingError();
              return cause && cause->code() == EACCES ? "" : error->description();
            }),
            "");
}

// The file is a program of root that lends its rights, and belongs to a group.
TEST(CopyItem, grantsAGroupThatItCannotKeepNoMoreThanOthers) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  std::string file = scratch.file("file", "text");
  fs::permissions(scratch.path(), fs::perms(0777));
  fs::permissions(file, fs::perms(06774));
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              kwtest::LogRecorder log;
              std::optional<NS::Error> error;
              if (!manager().copyItemAtPath(file, scratch.path("copy"), &error))
                return error->description();
              if (fs::status(scratch.path("copy")).permissions() != fs::perms(0744))
                return "another mode";
              return log.lines().size() == 1 &&
                             log.lines()[0].find("the owner of " + file) != std::string::npos
                         ? ""
                         : "not one line of the log for the owner";
            }),
            "");
}

TEST(CopyItem, replacesNothing) {
  ScratchFolder scratch;
  scratch.file("a", "new");
  scratch.file("b", "old");
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager().copyItemAtPath(scratch.path("a"), scratch.path("b"), &error));
  EXPECT_EQ(error->code(), NS::FileWriteFileExistsError);
  EXPECT_EQ(scratch.content("b"), "old");
}

} // namespace
