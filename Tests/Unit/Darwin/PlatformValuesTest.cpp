// Volumes, the main bundle and digests by the platform's calls, over the shim.
#include "Darwin/Shim.h"
#include "Foundation/Desktop/Internal/MainBundleFolder.h"
#include "Foundation/Files/URL.h"
#include "Foundation/Text/MessageDigest.h"
#include "Support/ScratchFolder.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

class Volume : public ::testing::Test {
protected:
  kwtest::darwin::ShimScope shim;
  kwtest::ScratchFolder folder;

  static std::optional<std::string> volumeOf(const std::string &path,
                                             NS::ErrorSlot error = nullptr) {
    auto value = NS::getResourceValue(NS::URL::fileURLWithPath(path, false),
                                      NS::URLResourceKey::Volume, error);
    return value ? std::optional(std::get<NS::URL>(*value).path()) : std::nullopt;
  }
};

TEST_F(Volume, isWhereThePlatformMountsIt) {
  std::string place = fs::canonical(folder.path());
  shim->mountPoint = place;
  EXPECT_EQ(volumeOf(folder.file("file", "")), place);
  EXPECT_EQ(volumeOf(folder.path()), place);
  shim->mountPoint = "/";
  EXPECT_EQ(volumeOf("/"), "/");
}

TEST_F(Volume, isTheStartVolumeWhereItShowsAnothersFolder) {
  shim->mountPoint = "/System/Volumes/Data";
  EXPECT_EQ(volumeOf(folder.file("file", "")), "/");
  shim->mountPoint = fs::canonical(folder.path()).string() + "x";
  EXPECT_EQ(volumeOf(folder.file("file", "")), "/") << "the name alone begins alike";
}

TEST_F(Volume, ofALinkIsThatOfItsFolder) {
  std::string place = fs::canonical(folder.path());
  fs::create_symlink("/nowhere", folder.path("link"));
  shim->mountPoint = place;
  EXPECT_EQ(volumeOf(folder.path("link")), place);
}

TEST_F(Volume, ofAMissingItemIsAReadingError) {
  std::optional<NS::Error> error;
  EXPECT_EQ(volumeOf(folder.path("missing"), &error), std::nullopt);
  EXPECT_EQ(error->code(), 260);
  EXPECT_EQ(volumeOf(std::string("/\0x", 3)), std::nullopt);
}

TEST(MainBundle, isTheFolderOfAPlainProgram) {
  kwtest::darwin::ShimScope shim;
  kwtest::ScratchFolder folder;
  fs::create_directory(folder.path("tools"));
  folder.file("tools/agent", "");
  fs::create_symlink("tools/agent", folder.path("link"));
  shim->executable = folder.path("link");
  EXPECT_EQ(NS::mainBundleFolder(), fs::canonical(folder.path("tools")));
}

TEST(MainBundle, isTheApplicationWhoseProgramItIs) {
  kwtest::darwin::ShimScope shim;
  kwtest::ScratchFolder folder;
  fs::create_directories(folder.path("A.app/Contents/MacOS"));
  fs::create_directories(folder.path("B/MacOS"));
  shim->executable = folder.file("A.app/Contents/MacOS/A", "");
  EXPECT_EQ(NS::mainBundleFolder(), fs::canonical(folder.path("A.app")));
  shim->executable = folder.file("B/MacOS/B", "");
  EXPECT_EQ(NS::mainBundleFolder(), fs::canonical(folder.path("B/MacOS")));
}

TEST(MainBundle, isEmptyForAProgramThatIsGone) {
  kwtest::darwin::ShimScope shim;
  shim->executable = "/nowhere/agent";
  EXPECT_EQ(NS::mainBundleFolder(), "");
}

// The examples of the standard, RFC 1321.
TEST(MessageDigest, isTheStandards) {
  NS::MD5Digest empty = {0xd4, 0x1d, 0x8c, 0xd9, 0x8f, 0x00, 0xb2, 0x04,
                         0xe9, 0x80, 0x09, 0x98, 0xec, 0xf8, 0x42, 0x7e};
  NS::MD5Digest abc = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                       0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};
  EXPECT_EQ(NS::messageDigestMD5(""), empty);
  EXPECT_EQ(NS::messageDigestMD5("abc"), abc);
}

} // namespace
