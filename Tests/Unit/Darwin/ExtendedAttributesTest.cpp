// Names of attributes by the platform's listxattr, over the shim.
#include "Foundation/Files/ExtendedAttributes.h"

#include "Support/ScratchFolder.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/xattr.h>

namespace {

class ExtendedAttributes : public ::testing::Test {
protected:
  kwtest::ScratchFolder folder;
  std::string file = folder.file("file", "");

  void SetUp() override {
    if (::setxattr(file.c_str(), "user.com.apple.rootless", "1", 1, 0) != 0)
      GTEST_SKIP() << "this file system keeps no attributes of users";
  }
  static std::int64_t list(const std::string &path, char *names, std::size_t size, int options) {
    return NS::ExtendedAttributes::shared().listxattr(path, names, size, options);
  }
};

TEST_F(ExtendedAttributes, areListedAsThePlatformHasThem) {
  EXPECT_EQ(list(file, nullptr, 0, NS::XATTR_NOFOLLOW_OPTION), 19);
  std::string names(19, 'x');
  EXPECT_EQ(list(file, names.data(), names.size(), NS::XATTR_NOFOLLOW_OPTION), 19);
  EXPECT_EQ(names, std::string("com.apple.rootless\0", 19));
}

TEST_F(ExtendedAttributes, ofALinkAreItsTargetsOnDemand) {
  std::filesystem::create_symlink("file", folder.path("link"));
  EXPECT_EQ(list(folder.path("link"), nullptr, 0, NS::XATTR_NOFOLLOW_OPTION), 0);
  EXPECT_EQ(list(folder.path("link"), nullptr, 0, 0), 19);
}

TEST_F(ExtendedAttributes, failWithThePlatformsError) {
  char names[4];
  EXPECT_EQ(list(file, names, sizeof names, 0), -1);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(list(folder.path("missing"), nullptr, 0, 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(list(file + std::string("\0x", 2), nullptr, 0, 0), -1);
  EXPECT_EQ(errno, EINVAL);
}

} // namespace
