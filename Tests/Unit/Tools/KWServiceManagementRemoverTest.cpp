// The edit of the overrides database, on databases in memory.
#include "Tools/KWServiceManagementRemover.h"

#include "Support/BinaryPropertyList.h"
#include "Support/FakeFileContents.h"
#include "Support/LogRecorder.h"

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/PropertyLists/PropertyList.h"

#include <gtest/gtest.h>

namespace {

using Dictionary = NS::PropertyList::Dictionary;

struct RemoverOfUser501 : kw::KWServiceManagementRemover {
  std::uint32_t userIdentifier() const override { return 501; }
};

class KWServiceManagementRemoverTest : public testing::Test {
protected:
  std::string path = "/private/var/db/launchd.db/com.apple.launchd.peruser.501/overrides.plist";

  void database(const NS::PropertyList &list) {
    files.files[path] = *NS::dataWithPropertyList(list, nullptr);
  }
  std::optional<NS::PropertyList> database() {
    return NS::propertyListWithData(files.files[path], nullptr);
  }

  kwtest::FakeFileContents files;
  kwtest::LogRecorder log;
  NS::ScopedOverride<NS::FileContents> filesOverride{files};
  RemoverOfUser501 remover;
  std::optional<std::string> description;
};

TEST_F(KWServiceManagementRemoverTest, aNilIdentifierIsLoggedAndDescribed) {
  EXPECT_FALSE(remover.removeSMLoginItem(std::nullopt, &description));
  EXPECT_EQ(description, "Corrupted startup item. Missing Bundle ID.");
  EXPECT_FALSE(remover.removeSMLoginItem(std::nullopt, nullptr));
  EXPECT_EQ(log.lines(), std::vector<std::string>(2, "Nil bundle ID when removing login item."));
}

TEST_F(KWServiceManagementRemoverTest, withoutADatabaseSucceedsAndCreatesNothing) {
  EXPECT_TRUE(remover.removeSMLoginItem("a", &description));
  EXPECT_EQ(files.writes, 0);
  EXPECT_EQ(description, std::nullopt);
}

TEST_F(KWServiceManagementRemoverTest, aDatabaseThatOnlyALimitRefusesIsAFailure) {
  database(Dictionary{{"a", true}});
  files.readFailure = EFBIG;
  EXPECT_FALSE(remover.removeSMLoginItem("a", &description));
  EXPECT_TRUE(description);
  EXPECT_EQ(files.writes, 0);
}

TEST_F(KWServiceManagementRemoverTest, anUnparseableDatabaseStaysAsItIs) {
  for (const std::string &content : {std::string("garbage"), std::string(), std::string("<array/>"),
                                     std::string("bplist00"), std::string("<dict><key>a</key>")}) {
    files.files[path] = content;
    EXPECT_TRUE(remover.removeSMLoginItem("a", &description));
    EXPECT_EQ(files.files[path], content);
  }
  EXPECT_EQ(files.writes, 0);
}

TEST_F(KWServiceManagementRemoverTest, takesTheIdentifierOutOfBothPlaces) {
  database(Dictionary{{"a", Dictionary{{"Disabled", true}}},
                      {"b", 1},
                      {"_com.apple.SMLoginItemBookmarks", Dictionary{{"a", "x"}, {"b", "y"}}}});
  EXPECT_TRUE(remover.removeSMLoginItem("a", &description));
  EXPECT_EQ(database(),
            NS::PropertyList(
                Dictionary{{"b", 1}, {"_com.apple.SMLoginItemBookmarks", Dictionary{{"b", "y"}}}}));
}

TEST_F(KWServiceManagementRemoverTest, takesItOutOfTheBookmarksAloneAndKeepsThemWhenEmpty) {
  database(Dictionary{{"b", 1}, {"_com.apple.SMLoginItemBookmarks", Dictionary{{"a", "x"}}}});
  EXPECT_TRUE(remover.removeSMLoginItem("a", nullptr));
  EXPECT_EQ(database(), NS::PropertyList(Dictionary{
                            {"b", 1}, {"_com.apple.SMLoginItemBookmarks", Dictionary{}}}));
}

TEST_F(KWServiceManagementRemoverTest, anAbsentIdentifierIsNotAnError) {
  NS::PropertyList list(Dictionary{{"b", 1}, {"_com.apple.SMLoginItemBookmarks", "odd"}});
  database(list);
  EXPECT_TRUE(remover.removeSMLoginItem("a", nullptr));
  EXPECT_EQ(database(), list);
  EXPECT_EQ(files.writes, 1);
}

TEST_F(KWServiceManagementRemoverTest, writesABinaryDatabaseBackAsXML) {
  files.files[path] =
      kwtest::binaryPropertyList({kwtest::dictionaryObject({1, 2}, {3, 3}),
                                  kwtest::asciiObject("a"), kwtest::asciiObject("b"), "\x09"});
  EXPECT_TRUE(remover.removeSMLoginItem("a", nullptr));
  EXPECT_TRUE(files.files[path].starts_with("<?xml"));
  EXPECT_EQ(database(), NS::PropertyList(Dictionary{{"b", true}}));
}

TEST_F(KWServiceManagementRemoverTest, aStringThatXMLCannotHoldIsLoggedAndLeavesTheFile) {
  std::string former = kwtest::binaryPropertyList(
      {kwtest::dictionaryObject({1}, {2}), kwtest::asciiObject("b"), kwtest::asciiObject("\x01")});
  files.files[path] = former;
  EXPECT_FALSE(remover.removeSMLoginItem("a", &description));
  EXPECT_EQ(files.files[path], former);
  ASSERT_TRUE(description);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Error occured: " + *description});
  EXPECT_FALSE(remover.removeSMLoginItem("a", nullptr));
}

TEST_F(KWServiceManagementRemoverTest, aFailedWriteIsDescribedAndNotLogged) {
  database(Dictionary{{"a", 1}});
  std::string former = files.files[path];
  files.writeFailure = EROFS;
  EXPECT_FALSE(remover.removeSMLoginItem("a", &description));
  EXPECT_EQ(description,
            NS::fileError(EROFS, path, NS::FileAccess::Writing).localizedDescription());
  EXPECT_FALSE(remover.removeSMLoginItem("a", nullptr));
  EXPECT_EQ(files.files[path], former);
  EXPECT_TRUE(log.lines().empty());
}

} // namespace
