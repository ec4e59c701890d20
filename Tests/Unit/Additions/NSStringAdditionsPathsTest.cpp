// The additions that look at the file system.
#include "Additions/NSStringAdditions.h"

#include "Foundation/Desktop/HomeDirectory.h"
#include "Support/ScratchFolder.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

TEST(DeletingRealPathExtension, keepsThatOfAnExistingFolder) {
  kwtest::ScratchFolder folder;
  std::filesystem::create_directory(folder.path("Foo.app"));
  EXPECT_EQ(kw::stringByDeletingRealPathExtension(folder.path("Foo.app")), folder.path("Foo.app"));
  std::filesystem::create_symlink("Foo.app", folder.path("Link.app"));
  EXPECT_EQ(kw::stringByDeletingRealPathExtension(folder.path("Link.app")),
            folder.path("Link.app"));
}

TEST(DeletingRealPathExtension, removesThatOfAFileAndOfAMissingItem) {
  kwtest::ScratchFolder folder;
  EXPECT_EQ(kw::stringByDeletingRealPathExtension(folder.file("a.tar.gz", "")),
            folder.path("a.tar"));
  EXPECT_EQ(kw::stringByDeletingRealPathExtension("/no/such/Foo.app"), "/no/such/Foo");
  EXPECT_EQ(kw::stringByDeletingRealPathExtension(""), "");
}

TEST(VolumePath, isAMountPointAboveTheItem) {
  EXPECT_EQ(kw::volumePath("/"), "/");
  EXPECT_EQ(kw::volumePath("/proc/self/status"), "/proc");
  kwtest::ScratchFolder folder;
  auto volume = kw::volumePath(folder.path());
  ASSERT_TRUE(volume);
  EXPECT_TRUE(folder.path().starts_with(*volume));
}

TEST(VolumePath, isNothingForAMissingItem) {
  EXPECT_EQ(kw::volumePath("/no/such/item"), std::nullopt);
  EXPECT_EQ(kw::volumePath(""), std::nullopt);
}

TEST(ExpandingTilde, isThePlatformsInThisProcess) {
  if (std::getenv("APP_SANDBOX_CONTAINER_ID"))
    GTEST_SKIP() << "this process calls itself sandboxed";
  EXPECT_EQ(kw::kws_stringByExpandingTildeInPath("~/x"), NS::homeDirectory() + "/x");
  EXPECT_EQ(kw::kws_stringByExpandingTildeInPath("/x"), "/x");
}

} // namespace
