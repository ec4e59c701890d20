// Conveniences of file URLs on real files.
#include "Additions/NSURLAdditions.h"

#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using NS::URL;
using NS::URLResourceKey;

class NSURLAdditions : public ::testing::Test {
protected:
  kwtest::ScratchFolder scratch;
  kwtest::LogRecorder log;
};

TEST_F(NSURLAdditions, fixTheTrailingSlashByTheItemOnDisk) {
  std::string file = scratch.file("file", "x");
  URL wrongFile = URL::fileURLWithPath(file, true);
  URL wrongFolder = URL::fileURLWithPath(scratch.path(), false);
  EXPECT_TRUE(wrongFile.absoluteString().ends_with("/file/"));
  EXPECT_TRUE(kw::fileURLWithFixedTrailingSlash(wrongFile).absoluteString().ends_with("/file"));
  EXPECT_EQ(kw::fileURLWithFixedTrailingSlash(wrongFolder).absoluteString(),
            wrongFolder.absoluteString() + "/");
  EXPECT_EQ(kw::fileURLWithFixedTrailingSlash(wrongFile).path(), file);
}

TEST_F(NSURLAdditions, removeTheTrailingSlashOfAMissingItem) {
  URL missing = URL::fileURLWithPath(scratch.path("missing"), true);
  EXPECT_FALSE(kw::fileURLWithFixedTrailingSlash(missing).hasDirectoryPath());
}

TEST_F(NSURLAdditions, giveResourceValues) {
  std::filesystem::create_symlink("nowhere", scratch.path("link"));
  URL link = URL::fileURLWithPath(scratch.path("link"));
  EXPECT_EQ(kw::resourceForKey(link, URLResourceKey::IsSymbolicLink), NS::URLResourceValue(true));
  URL folder = URL::fileURLWithPath(scratch.path());
  EXPECT_EQ(kw::resourceForKey(folder, URLResourceKey::IsSymbolicLink),
            NS::URLResourceValue(false));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(NSURLAdditions, giveNothingOfAMissingFileAndLogOneLine) {
  URL missing = URL::fileURLWithPath(scratch.path("mis sing"));
  EXPECT_FALSE(kw::resourceForKey(missing, URLResourceKey::IsSymbolicLink));
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"Failed to get resource NSURLIsSymbolicLinkKey for URL " +
                                      missing.absoluteString()}));
}

TEST_F(NSURLAdditions, giveTheIcon) {
  std::optional<NS::Icon> icon = kw::icon(URL::fileURLWithPath(scratch.path()));
  ASSERT_TRUE(icon);
  EXPECT_FALSE(icon->names.empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(NSURLAdditions, giveTheDisplayName) {
  URL url = URL::fileURLWithPath(scratch.file("Read me.txt", "x"));
  EXPECT_EQ(kw::name(url), "Read me.txt");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(NSURLAdditions, logWhichValueOfAMissingFileWasWanted) {
  URL missing = URL::fileURLWithPath(scratch.path("missing"));
  EXPECT_FALSE(kw::icon(missing));
  EXPECT_FALSE(kw::name(missing));
  std::string url = missing.absoluteString();
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "Failed to get resource NSURLEffectiveIconKey for URL " + url,
                             "Failed to get resource NSURLLocalizedNameKey for URL " + url}));
}

bool isTranslocated(std::string_view path) {
  return kw::isInTranslocationFolder(URL::fileURLWithPath(path, false));
}

TEST(IsInTranslocationFolder, needsBothPartsAnywhereInThePath) {
  EXPECT_TRUE(isTranslocated("/private/var/folders/zz/T/AppTranslocation/1/d/Some.app"));
  EXPECT_TRUE(isTranslocated("/AppTranslocation/private/var/folders"));
  EXPECT_TRUE(isTranslocated("/a/private/var/foldersAppTranslocationX"));
}

TEST(IsInTranslocationFolder, isFalseOutsideOfTheFolders) {
  EXPECT_FALSE(isTranslocated("/Applications/AppTranslocation/Some.app"));
  EXPECT_FALSE(isTranslocated("/var/folders/zz/T/AppTranslocation/Some.app"));
}

TEST(IsInTranslocationFolder, isFalseInAnotherOfTheFolders) {
  EXPECT_FALSE(isTranslocated("/private/var/folders/zz/T/Some.app"));
}

TEST(IsInTranslocationFolder, tellsCapitalsFromSmallLetters) {
  EXPECT_FALSE(isTranslocated("/private/var/folders/zz/T/apptranslocation/Some.app"));
  EXPECT_FALSE(isTranslocated("/Private/Var/Folders/zz/T/AppTranslocation/Some.app"));
}

} // namespace
