// The items that the system protects from root, over the tests' own list of
// attributes.
#include "Additions/RootlessProtection.h"

#include "Additions/NSFileManager+Additions.h"
#include "Support/FakeItemServices.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

class RootlessProtection : public ::testing::Test {
protected:
  kwtest::FakeAppKitVersion version{1404.0};
  kwtest::FakeExtendedAttributes attributes;
  kw::RootlessProtection protection;

  bool protects(const std::string &names) {
    attributes.names = names;
    return protection.protects("/item");
  }
};

TEST_F(RootlessProtection, isByTheAttributeOfThatName) {
  EXPECT_TRUE(protects("com.apple.rootless\0"s));
  EXPECT_TRUE(protects("com.example.note\0com.apple.rootless\0"s));
  EXPECT_FALSE(protects("com.apple.quarantine\0"s));
  EXPECT_FALSE(protects("com.apple.rootless.more\0"s));
}

TEST_F(RootlessProtection, isByAnyLeadingPartOfTheNameToo) {
  EXPECT_TRUE(protects("com.apple\0"s));
  EXPECT_TRUE(protects("c\0"s));
  EXPECT_FALSE(protects("Com\0"s));
}

TEST_F(RootlessProtection, isNotSeenInANameNoLongerThanTheOneBeforeIt) {
  EXPECT_FALSE(protects("com.apple.quarantine\0com.apple\0"s)) << "the walk ends early";
  EXPECT_FALSE(protects("com.apple.quarantine\0com.apple.rootless\0"s)) << "for the whole name too";
  EXPECT_TRUE(protects("a\0com.apple\0"s));
  EXPECT_FALSE(protects("abcdefghijklmnopqrs\0com.apple.rootless\0"s))
      << "nineteen bytes before the nineteen of the name";
  EXPECT_TRUE(protects("abcdefghijklmnopqr\0com.apple.rootless\0"s));
}

TEST_F(RootlessProtection, isJudgedTheSameInAListThatGotShorter) {
  attributes.size = 64;
  EXPECT_TRUE(protects("a\0com.apple\0"s));
  EXPECT_FALSE(protects("com.apple.quarantine\0com.apple\0"s)) << "the walk ends early";
}

TEST_F(RootlessProtection, isNotSeenBehindAnEmptyName) {
  EXPECT_FALSE(protects("\0com.apple.rootless\0"s));
}

TEST_F(RootlessProtection, takesTheLastByteForTheEnd) {
  EXPECT_TRUE(protects("com.apple.rootlessX")) << "a list that lost its last NUL";
}

TEST_F(RootlessProtection, needsAttributes) {
  EXPECT_FALSE(protects(""));
  EXPECT_EQ(attributes.options.size(), 1u) << "nobody asks twice for nothing";
  attributes.size = -1;
  EXPECT_FALSE(protects("com.apple.rootless\0"s));
}

TEST_F(RootlessProtection, isNotSeenWhenTheListCannotBeReadAfterAll) {
  attributes.length = -1;
  EXPECT_FALSE(protects("com.apple.rootless\0"s));
  attributes.length = 0;
  EXPECT_FALSE(protects("com.apple.rootless\0"s));
}

TEST_F(RootlessProtection, readsNoMoreThanItHasRoomFor) {
  attributes.size = 4;
  attributes.length = 4000;
  EXPECT_TRUE(protects("com.apple.rootless\0"s)) << "what fits is a leading part";
}

TEST_F(RootlessProtection, doesNotFollowLinks) {
  protects("x\0"s);
  EXPECT_EQ(attributes.options, (std::vector<int>{1, 1}));
}

TEST_F(RootlessProtection, isOfNoEmptyPath) {
  attributes.names = "com.apple.rootless\0"s;
  EXPECT_FALSE(protection.protects(""));
  EXPECT_TRUE(attributes.options.empty());
}

TEST(RootlessSupport, needsAVersionAboveTheLastWithout) {
  for (auto [number, supported] : {std::pair{1349.0, false}, std::pair{1349.99, false},
                                   std::pair{1000.0, false}, std::pair{1350.0, true}}) {
    kwtest::FakeAppKitVersion version(number);
    EXPECT_EQ(kw::RootlessProtection().isSupported(), supported) << number;
  }
}

TEST(RootlessSupport, protectsNothingOnAnOlderSystem) {
  kwtest::FakeAppKitVersion version(1349.0);
  kwtest::FakeExtendedAttributes attributes;
  attributes.names = "com.apple.rootless\0"s;
  EXPECT_FALSE(kw::RootlessProtection().protects("/item"));
  EXPECT_TRUE(attributes.options.empty());
}

TEST(RootlessSupport, isDecidedOnce) {
  kw::RootlessProtection protection;
  {
    kwtest::FakeAppKitVersion version(1404.0);
    EXPECT_TRUE(protection.isSupported());
    EXPECT_TRUE(protection.isSupported());
    EXPECT_EQ(version.questions, 1);
  }
  kwtest::FakeAppKitVersion version(1000.0);
  EXPECT_TRUE(protection.isSupported());
}

} // namespace
