// The names of real attributes.
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
  std::string file = folder.file("a", "");

  void SetUp() override {
    if (::setxattr(file.c_str(), "user.com.apple", "1", 1, 0) != 0)
      GTEST_SKIP() << "this file system keeps no attributes of users";
  }

  std::int64_t list(const std::string &path, char *names, std::size_t size,
                    int options = NS::XATTR_NOFOLLOW_OPTION) {
    return NS::ExtendedAttributes::shared().listxattr(path, names, size, options);
  }
};

TEST_F(ExtendedAttributes, loseTheirPrefix) {
  ::setxattr(file.c_str(), "user.b", "1", 1, 0);
  EXPECT_EQ(list(file, nullptr, 0), 12);
  std::string names(12, 'x');
  EXPECT_EQ(list(file, names.data(), names.size()), 12);
  EXPECT_TRUE(names == std::string("com.apple\0b\0", 12) ||
              names == std::string("b\0com.apple\0", 12));
}

TEST_F(ExtendedAttributes, areOnlyTheUsers) {
  if (::setxattr(file.c_str(), "trusted.other", "1", 1, 0) != 0)
    GTEST_SKIP() << "only root may set an attribute of another name space";
  EXPECT_EQ(list(file, nullptr, 0), 10);
}

TEST_F(ExtendedAttributes, failWhereTheBufferIsTooSmall) {
  char names[4];
  EXPECT_EQ(list(file, names, sizeof names), -1);
  EXPECT_EQ(errno, ERANGE);
}

TEST_F(ExtendedAttributes, ofALinkAreNotThoseOfItsTarget) {
  std::filesystem::create_symlink("a", folder.path("link"));
  EXPECT_EQ(list(folder.path("link"), nullptr, 0), 0);
  EXPECT_EQ(list(folder.path("link"), nullptr, 0, 0), 10) << "unless links are followed";
}

TEST_F(ExtendedAttributes, ofAMissingItemFail) {
  EXPECT_EQ(list(folder.path("missing"), nullptr, 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(list(std::string("/\0x", 3), nullptr, 0), -1);
  EXPECT_EQ(errno, EINVAL);
}

} // namespace
