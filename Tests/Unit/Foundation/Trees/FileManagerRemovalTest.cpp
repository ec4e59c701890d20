// Removal of items and trees, plain ones and such as resist it.
#include "Foundation/Trees/FileManager.h"

#include "Support/LockedItem.h"
#include "Support/PrivateMounts.h"
#include "Support/RandomTree.h"
#include "Support/Sanitizers.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using kwtest::LockedItem;
using kwtest::ScratchFolder;

bool removeItem(const std::string &path, NS::ErrorSlot error = nullptr) {
  return NS::FileManager::defaultManager().removeItemAtPath(path, error);
}

std::string pathIn(const NS::Error &error) {
  return std::get<std::string>(error.userInfo().find(NS::FilePathErrorKey)->second);
}

TEST(RemoveItem, removesEveryKindOfItem) {
  ScratchFolder scratch;
  std::string root = scratch.path("root");
  fs::create_directory(root);
  kwtest::RandomTree tree(root, 1, 500);
  std::optional<NS::Error> error;
  EXPECT_TRUE(removeItem(root, &error)) << error->description();
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(RemoveItem, removesALinkAndNotItsTarget) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("outside"));
  scratch.file("outside/file", "kept");
  fs::create_directory_symlink("outside", scratch.path("link"));
  EXPECT_TRUE(removeItem(scratch.path("link/")));
  EXPECT_FALSE(fs::exists(fs::symlink_status(scratch.path("link"))));
  EXPECT_EQ(scratch.content("outside/file"), "kept");
}

TEST(RemoveItem, doesNotDescendThroughLinksInsideATree) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("outside"));
  scratch.file("outside/file", "kept");
  fs::create_directory(scratch.path("root"));
  fs::create_directory_symlink("../outside", scratch.path("root/link"));
  EXPECT_TRUE(removeItem(scratch.path("root")));
  EXPECT_EQ(scratch.content("outside/file"), "kept");
}

TEST(RemoveItem, reportsAMissingItemWithItsPath) {
  ScratchFolder scratch;
  std::optional<NS::Error> error;
  EXPECT_FALSE(removeItem(scratch.path("missing"), &error));
  EXPECT_EQ(error->domain(), NS::CocoaErrorDomain);
  EXPECT_EQ(error->code(), NS::FileNoSuchFileError);
  EXPECT_EQ(pathIn(*error), scratch.path("missing"));
  EXPECT_EQ(error->underlyingError()->code(), ENOENT);
  EXPECT_FALSE(removeItem(scratch.path("missing/below"), &error));
  EXPECT_EQ(error->code(), NS::FileNoSuchFileError);
  EXPECT_FALSE(removeItem("", &error));
  EXPECT_EQ(error->code(), NS::FileNoSuchFileError);
}

TEST(RemoveItem, refusesTheRootAndPathsThatEndInDots) {
  ScratchFolder scratch;
  scratch.file("file", "kept");
  fs::create_directory(scratch.path("sub"));
  for (const std::string &path : {std::string("/"), std::string("///"), std::string("."),
                                  std::string(".."), scratch.path("."), scratch.path("sub/.."),
                                  scratch.path("sub/..//"), scratch.path("sub/./")}) {
    std::optional<NS::Error> error;
    EXPECT_FALSE(removeItem(path, &error)) << path;
    ASSERT_TRUE(error) << path;
    EXPECT_NE(error->code(), NS::FileNoSuchFileError) << path;
  }
  EXPECT_EQ(scratch.content("file"), "kept");
  EXPECT_TRUE(fs::exists(scratch.path("sub")));
}

TEST(RemoveItem, reportsANameOrAPathThatIsTooLong) {
  std::string deep;
  while (deep.size() < 100'000)
    deep += "/a";
  for (const std::string &path : {deep, "/" + std::string(100'000, 'a')}) {
    std::optional<NS::Error> error;
    EXPECT_FALSE(removeItem(path, &error));
    EXPECT_EQ(error->code(), NS::FileWriteInvalidFileNameError);
    EXPECT_EQ(error->underlyingError()->code(), ENAMETOOLONG);
  }
}

TEST(RemoveItem, removesTreesDeeperThanAnyPathWithFewDescriptors) {
  ScratchFolder scratch;
  std::size_t before = kwtest::openDescriptorCount();
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (kwtest::isRoot() && kwtest::enterMountNamespace())
                kwtest::mountMemory(scratch.path());
              fs::create_directory(scratch.path("root"));
              kwtest::DeepChain chain(scratch.path("root"), 40'000, "folder");
              kwtest::limitDescriptors(32);
              std::optional<NS::Error> error;
              return removeItem(scratch.path("root"), &error) ? "" : error->description();
            }),
            "");
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
}

TEST(RemoveItem, stopsAtTheFirstItemItCannotRemoveAndNamesIt) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("root/sub"));
  std::string path = scratch.file("root/sub/locked", "kept");
  LockedItem locked(path);
  KW_REQUIRE_LOCKED(locked);
  std::optional<NS::Error> error;
  EXPECT_FALSE(removeItem(scratch.path("root"), &error));
  EXPECT_EQ(error->code(), NS::FileWriteNoPermissionError);
  EXPECT_EQ(pathIn(*error), path);
  EXPECT_EQ(scratch.content("root/sub/locked"), "kept");
}

// Many folders directly within one, shared out to several threads.
void makeBroadTree(const ScratchFolder &scratch) {
  for (int number = 0; number < 300; ++number) {
    std::string folder = std::string("root/folder") + std::to_string(number);
    fs::create_directories(scratch.path(folder + "/sub"));
    scratch.file(folder + "/file", "");
    scratch.file(folder + "/sub/file", "");
  }
}

TEST(RemoveItem, removesManyFoldersAtOnceWithFewDescriptors) {
  ScratchFolder scratch;
  makeBroadTree(scratch);
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              kwtest::limitDescriptors(32);
              std::size_t before = kwtest::openDescriptorCount();
              std::optional<NS::Error> error;
              if (!removeItem(scratch.path("root"), &error))
                return error->description();
              return kwtest::openDescriptorCount() == before ? "" : "a descriptor was left open";
            }),
            "");
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(RemoveItem, namesTheItemThatStopsTheRemovalOfManyFolders) {
  for (int turn = 0; turn < 5; ++turn) {
    ScratchFolder scratch;
    makeBroadTree(scratch);
    std::string path =
        scratch.path(std::string("root/folder") + std::to_string(60 * turn) + "/sub/file");
    LockedItem locked(path);
    KW_REQUIRE_LOCKED(locked);
    std::optional<NS::Error> error;
    EXPECT_FALSE(removeItem(scratch.path("root"), &error));
    EXPECT_EQ(error->code(), NS::FileWriteNoPermissionError);
    EXPECT_EQ(pathIn(*error), path);
    EXPECT_TRUE(fs::exists(path));
  }
}

TEST(RemoveItem, staysOffMountPoints) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  std::string refusal = kwtest::withPrivateMounts([&]() -> std::string {
    fs::create_directories(scratch.path("root/sub/mounted"));
    fs::create_directory(scratch.path("outside"));
    scratch.file("outside/file", "kept");
    if (!kwtest::mountMemory(scratch.path("root/sub/mounted")))
      return "no mount";
    scratch.file("root/sub/mounted/file", "kept");
    for (const char *name : {"root", "root/sub/mounted"}) {
      std::optional<NS::Error> error;
      if (removeItem(scratch.path(name), &error) || error->underlyingError()->code() != EBUSY)
        return std::string(name) + ": no EBUSY";
      if (pathIn(*error) != scratch.path("root/sub/mounted"))
        return pathIn(*error);
    }
    // The same volume under another name: the device number tells nothing.
    fs::create_directory(scratch.path("root/sub/bound"));
    if (!kwtest::bindMount(scratch.path("outside"), scratch.path("root/sub/bound")))
      return "no mount";
    if (removeItem(scratch.path("root/sub/bound")))
      return "a bound folder was removed";
    return scratch.content("root/sub/mounted/file") + scratch.content("outside/file");
  });
  EXPECT_EQ(refusal, "keptkept");
}

TEST(RemoveItem, reportsAReadOnlyVolume) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directory(scratch.path("root"));
  scratch.file("root/file", "kept");
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("root"), scratch.path("root")) ||
                  !kwtest::makeReadOnly(scratch.path("root")))
                return "no mount";
              std::optional<NS::Error> error;
              removeItem(scratch.path("root/file"), &error);
              return error && error->code() == NS::FileWriteVolumeReadOnlyError ? ""
                                                                                : "another error";
            }),
            "");
  EXPECT_EQ(scratch.content("root/file"), "kept");
}

TEST(RemoveItem, reportsAccessThatOthersDeny) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::permissions(scratch.path(), fs::perms(0755));
  scratch.file("file", "kept");
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              std::optional<NS::Error> error;
              removeItem(scratch.path("file"), &error);
              return error && error->code() == NS::FileWriteNoPermissionError ? ""
                                                                              : "another error";
            }),
            "");
  EXPECT_EQ(scratch.content("file"), "kept");
}

TEST(RemoveItem, removesAFolderOfManyFilesWithFewDescriptorsAndLittleMemory) {
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (kwtest::isRoot() && kwtest::enterMountNamespace())
                kwtest::mountMemory(scratch.path());
              fs::create_directory(scratch.path("root"));
              int folder = ::open(scratch.path("root").c_str(), O_RDONLY | O_DIRECTORY);
              for (int number = 0; number < 200'000; ++number)
                if (::mknodat(folder, std::to_string(number).c_str(), S_IFREG | 0600, 0) != 0)
                  return "no file";
              ::close(folder);
              kwtest::limitDescriptors(64);
              rusage before, after;
              ::getrusage(RUSAGE_SELF, &before);
              std::optional<NS::Error> error;
              if (!removeItem(scratch.path("root"), &error))
                return error->description();
              ::getrusage(RUSAGE_SELF, &after);
              long grown = after.ru_maxrss - before.ru_maxrss;
              // Four megabytes of listing at a time, for any folder.
              return grown < 8192 || kwtest::addsMemory ? "" : std::to_string(grown) + " KiB more";
            }),
            "");
}

} // namespace
