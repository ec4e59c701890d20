// The split of a path at its last component, and the way back to a path.
#include "Foundation/Files/POSIX/ItemLocation.h"

#include "Support/MissingCall.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::ItemLocation;

// The resolved path of an item, or "error" and a number.
std::string resolved(const ItemLocation &location) {
  std::string path;
  int error = NS::resolvePath(location, path);
  return error == 0 ? path : "error " + std::to_string(error);
}

std::string located(const std::string &path) {
  ItemLocation location;
  int error = NS::locateItem(path, location);
  return error == 0 ? resolved(location) : "error " + std::to_string(error);
}

TEST(ItemLocation, namesALinkItselfAndNotItsTarget) {
  ScratchFolder scratch;
  std::string real = fs::canonical(scratch.path());
  fs::create_directory(scratch.path("folder"));
  fs::create_directory_symlink("folder", scratch.path("link"));
  for (const char *path : {"link", "link/", "link///", "folder/../link", ".//link"})
    EXPECT_EQ(located(scratch.path(path)), real + "/link") << path;
  EXPECT_EQ(located(scratch.path("link/missing")), real + "/folder/missing");
}

TEST(ItemLocation, startsAtTheRootOrAtTheWorkingFolder) {
  EXPECT_EQ(located("/missing"), "/missing");
  EXPECT_EQ(located("//m"), "/m");
  EXPECT_EQ(located("missing/"), (fs::current_path() / "missing").string());
  EXPECT_EQ(located("m"), (fs::current_path() / "m").string());
}

TEST(ItemLocation, refusesPathsThatNameNoItemOfAFolder) {
  ScratchFolder scratch;
  auto error = [](int number) { return "error " + std::to_string(number); };
  EXPECT_EQ(located(""), error(ENOENT));
  EXPECT_EQ(located(std::string("/a\0b", 4)), error(EINVAL));
  for (const char *path : {"/", "///"})
    EXPECT_EQ(located(path), error(EBUSY)) << path;
  for (const char *path : {".", "..", "../", "/nowhere/.", "x/.."})
    EXPECT_EQ(located(path), error(EINVAL)) << path;
  EXPECT_EQ(located(scratch.path("missing/item")), error(ENOENT));
  EXPECT_EQ(located(scratch.file("file", "") + "/item"), error(ENOTDIR));
}

TEST(ItemLocation, isStaleWhenItsFolderWasRemoved) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("folder"));
  ItemLocation location;
  ASSERT_EQ(NS::locateItem(scratch.path("folder/item"), location), 0);
  fs::rename(scratch.path("folder"), scratch.path("moved"));
  EXPECT_EQ(resolved(location), fs::canonical(scratch.path("moved")).string() + "/item");
  fs::remove(scratch.path("moved"));
  EXPECT_EQ(resolved(location), "error " + std::to_string(ESTALE));
  EXPECT_EQ(resolved(ItemLocation()), "error " + std::to_string(ESTALE)) << "no folder at all";
}

// The roots of two volumes of one kind have one number.
TEST(ItemLocation, isStaleWhenAnotherVolumeHidesItsFolder) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              ItemLocation location;
              if (!kwtest::mountMemory(scratch.path()) ||
                  NS::locateItem(scratch.path("item"), location) != 0 ||
                  resolved(location) != fs::canonical(scratch.path()).string() + "/item")
                return "no volume";
              return kwtest::mountMemory(scratch.path()) ? resolved(location) : "no other volume";
            }),
            "error " + std::to_string(ESTALE));
}

TEST(ItemLocation, tellsWhyThePathCannotBeRead) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              ItemLocation location;
              if (NS::locateItem("/item", location) != 0 ||
                  !kwtest::refuseCalls(SYS_readlink, EACCES))
                return "readlink still works";
              return resolved(location);
            }),
            "error " + std::to_string(EACCES));
}

} // namespace
