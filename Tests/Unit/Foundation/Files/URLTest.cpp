// File URLs: their making from a path, and the values of the item there.
#include "Foundation/Files/URL.h"

#include "Support/ForkedChild.h"
#include "Support/MissingCall.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/ResourceShortage.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::URL;

TEST(URL, looksWhetherAFolderIsAtThePath) {
  ScratchFolder scratch;
  scratch.file("file", "");
  fs::create_directory(scratch.path("folder"));
  fs::create_directory_symlink("folder", scratch.path("link"));
  EXPECT_FALSE(URL::fileURLWithPath(scratch.path("file")).hasDirectoryPath());
  EXPECT_TRUE(URL::fileURLWithPath(scratch.path("folder")).hasDirectoryPath());
  EXPECT_TRUE(URL::fileURLWithPath(scratch.path("link")).hasDirectoryPath());
  EXPECT_FALSE(URL::fileURLWithPath(scratch.path("missing")).hasDirectoryPath());
  EXPECT_TRUE(URL::fileURLWithPath(scratch.path("missing/")).hasDirectoryPath());
}

TEST(URL, takesTheWordForItWhereItIsTold) {
  ScratchFolder scratch;
  EXPECT_FALSE(URL::fileURLWithPath(scratch.path(), false).hasDirectoryPath());
  EXPECT_TRUE(URL::fileURLWithPath("/nowhere/x", true).hasDirectoryPath());
}

TEST(URL, dropsTrailingSlashesOfThePath) {
  EXPECT_EQ(URL::fileURLWithPath("/nowhere/x///").path(), "/nowhere/x");
  EXPECT_EQ(URL::fileURLWithPath("/").path(), "/");
  EXPECT_EQ(URL::fileURLWithPath("///").path(), "/");
  EXPECT_EQ(URL::fileURLWithPath("").path(), "");
}

TEST(URL, escapesCharactersThatAURLMayNotHold) {
  EXPECT_EQ(URL::fileURLWithPath("/a b/%?#\xc3\xa9\n", false).absoluteString(),
            "file:///a%20b/%25%3F%23%C3%A9%0A");
  std::string plain = "/azAZ09-._~!$&'()*+,=:@";
  EXPECT_EQ(URL::fileURLWithPath(plain, false).absoluteString(), "file://" + plain);
  EXPECT_EQ(URL::fileURLWithPath("/`{[^;", false).absoluteString(), "file:///%60%7B%5B%5E%3B");
  EXPECT_EQ(URL::fileURLWithPath("/a", true).absoluteString(), "file:///a/");
  EXPECT_EQ(URL::fileURLWithPath("/", true).absoluteString(), "file:///");
}

TEST(URL, comparesPathAndKind) {
  EXPECT_EQ(URL::fileURLWithPath("/a/", true), URL::fileURLWithPath("/a", true));
  EXPECT_NE(URL::fileURLWithPath("/a", true), URL::fileURLWithPath("/a", false));
}

TEST(URL, reachesADanglingLinkAndReportsAMissingItem) {
  ScratchFolder scratch;
  fs::create_symlink("missing", scratch.path("dangling"));
  std::optional<NS::Error> error;
  EXPECT_TRUE(URL::fileURLWithPath(scratch.path("dangling")).checkResourceIsReachable(&error));
  EXPECT_FALSE(error);
  EXPECT_FALSE(URL::fileURLWithPath(scratch.path("missing")).checkResourceIsReachable(&error));
  EXPECT_EQ(error->code(), NS::FileReadNoSuchFileError);
  EXPECT_FALSE(URL::fileURLWithPath(scratch.path("missing")).checkResourceIsReachable(nullptr));
}

TEST(URL, isNotCutAtANulByte) {
  ScratchFolder scratch;
  std::string path = scratch.path() + std::string("\0x", 2);
  EXPECT_FALSE(URL::fileURLWithPath(path).hasDirectoryPath());
  EXPECT_FALSE(URL::fileURLWithPath(path).checkResourceIsReachable(nullptr));
  EXPECT_FALSE(NS::getResourceValue(URL::fileURLWithPath(path), NS::URLResourceKey::IsSymbolicLink,
                                    nullptr));
}

TEST(ResourceValue, tellsLinksFromOtherItems) {
  ScratchFolder scratch;
  fs::create_directory_symlink(".", scratch.path("link"));
  auto isLink = [](const std::string &path) {
    return NS::getResourceValue(URL::fileURLWithPath(path), NS::URLResourceKey::IsSymbolicLink,
                                nullptr);
  };
  EXPECT_EQ(isLink(scratch.path("link")), NS::URLResourceValue(true));
  EXPECT_EQ(isLink(scratch.path()), NS::URLResourceValue(false));
}

TEST(ResourceValue, namesTheMountPointOfAnItem) {
  EXPECT_EQ(NS::getResourceValue(URL::fileURLWithPath("/proc/self/status"),
                                 NS::URLResourceKey::Volume, nullptr),
            NS::URLResourceValue(URL::fileURLWithPath("/proc", true)));
}

TEST(ResourceValue, namesTheMountPointOfALinkAndNotOfItsTarget) {
  ScratchFolder scratch;
  fs::create_directory_symlink("/proc", scratch.path("link"));
  auto volume = [](const std::string &path) {
    return NS::getResourceValue(URL::fileURLWithPath(path), NS::URLResourceKey::Volume, nullptr);
  };
  auto ofFolder = volume(scratch.path());
  ASSERT_TRUE(ofFolder);
  EXPECT_EQ(volume(scratch.path("link")), ofFolder);
  EXPECT_EQ(volume(scratch.path("link/.")), NS::URLResourceValue(URL::fileURLWithPath("/proc/")));
  EXPECT_EQ(volume("/"), NS::URLResourceValue(URL::fileURLWithPath("/")));
  EXPECT_EQ(volume("/proc/.."), NS::URLResourceValue(URL::fileURLWithPath("/")));
  EXPECT_EQ(volume(""), std::nullopt);
  EXPECT_EQ(volume(std::string("/proc\0", 6)), std::nullopt);
}

TEST(ResourceValue, countsAFolderMountedASecondTimeAsAVolume) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("folder/inner"));
  fs::create_directory(scratch.path("second"));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("folder"), scratch.path("second")))
                return "no mount";
              auto volume = NS::getResourceValue(URL::fileURLWithPath(scratch.path("second/inner")),
                                                 NS::URLResourceKey::Volume, nullptr);
              return volume ? std::get<URL>(*volume).path() : "none";
            }),
            fs::canonical(scratch.path("second")).string());
}

TEST(ResourceValue, readsNameAndIcon) {
  ScratchFolder scratch;
  URL folder = URL::fileURLWithPath(scratch.path());
  auto name = NS::getResourceValue(folder, NS::URLResourceKey::LocalizedName, nullptr);
  ASSERT_TRUE(name);
  EXPECT_EQ(std::get<std::string>(*name), fs::path(scratch.path()).filename().string());
  // In a child, since the library below keeps the home folder of its process
  // from then on, and the tests of the Trash need another one.
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              auto icon = NS::getResourceValue(folder, NS::URLResourceKey::EffectiveIcon, nullptr);
              return icon && !std::get<NS::Icon>(*icon).names.empty() ? "" : "no icon";
            }),
            "");
}

// The library below reads the item by this call.
TEST(ResourceValue, isAFailureToReadWhenTheHostHasNone) {
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              if (!kwtest::refuseCalls(SYS_statx, ENOENT))
                return "the call still works";
              std::optional<NS::Error> error;
              if (NS::getResourceValue(URL::fileURLWithPath(scratch.path(), true),
                                       NS::URLResourceKey::LocalizedName, &error))
                return "a name";
              return std::to_string(NS::errnoBeneath(*error));
            }),
            std::to_string(EIO));
}

TEST(ResourceValue, ofAMissingItemIsAReadingError) {
  for (auto key : {NS::URLResourceKey::IsSymbolicLink, NS::URLResourceKey::Volume,
                   NS::URLResourceKey::EffectiveIcon, NS::URLResourceKey::LocalizedName}) {
    std::optional<NS::Error> error;
    EXPECT_FALSE(NS::getResourceValue(URL::fileURLWithPath("/nowhere/x"), key, &error));
    EXPECT_EQ(error->code(), NS::FileReadNoSuchFileError) << NS::describe(key);
  }
}

} // namespace
