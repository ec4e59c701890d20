// Aliases, links and kinds of folders.
#include "Additions/NSFileManager+AliasExt.h"

#include "Support/FakeItemServices.h"
#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class ResolvedOriginalPath : public ::testing::Test {
protected:
  kwtest::ScratchFolder folder;
  kwtest::FakeAliases aliases;
  kwtest::LogRecorder log;

  static std::string resolve(const std::string &path) {
    return kw::resolvedOriginalPath(NS::FileManager::defaultManager(), path);
  }
};

TEST_F(ResolvedOriginalPath, ofAnOrdinaryItemIsItsOwn) {
  std::string file = folder.file("f", "");
  EXPECT_EQ(resolve(file), file);
  EXPECT_EQ(resolve(folder.path()), folder.path());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ResolvedOriginalPath, ofAMissingItemIsItsOwnAndLogged) {
  EXPECT_EQ(resolve("/no/such/item"), "/no/such/item");
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].starts_with("Error resolving path (/no/such/item): Error Domain="))
      << log.lines()[0];
}

TEST_F(ResolvedOriginalPath, ofALinkIsItsStoredDestination) {
  std::string file = folder.file("f", "");
  fs::create_symlink(file, folder.path("l"));
  fs::create_symlink(folder.path("l"), folder.path("ll"));
  EXPECT_EQ(resolve(folder.path("l")), file);
  EXPECT_EQ(resolve(folder.path("ll")), folder.path("l")) << "one level only";
}

TEST_F(ResolvedOriginalPath, countsARelativeDestinationFromTheWorkingFolder) {
  fs::create_symlink(".", folder.path("here"));
  EXPECT_EQ(resolve(folder.path("here")), ".");
  folder.file("only-in-the-scratch-folder", "");
  fs::create_symlink("only-in-the-scratch-folder", folder.path("l"));
  EXPECT_EQ(resolve(folder.path("l")), folder.path("l"));
}

TEST_F(ResolvedOriginalPath, ofADanglingLinkIsItsOwnAndLogged) {
  fs::create_symlink("/no/such/item", folder.path("l"));
  EXPECT_EQ(resolve(folder.path("l")), folder.path("l"));
  EXPECT_EQ(log.lines(), Lines{"File not exists at destination /no/such/item"});
}

TEST_F(ResolvedOriginalPath, followsCloudItemsFirst) {
  std::string file = folder.file("f", "");
  aliases.cloud = {{"/cloud/a", "/cloud/b"}, {"/cloud/b", file}};
  EXPECT_EQ(resolve("/cloud/a"), file);
}

TEST_F(ResolvedOriginalPath, endsForCloudItemsThatLeadInACircle) {
  aliases.cloud = {{"/cloud/a", "/cloud/b"}, {"/cloud/b", "/cloud/a"}};
  EXPECT_TRUE(resolve("/cloud/a").starts_with("/cloud/"));
}

TEST_F(ResolvedOriginalPath, followsAtMostThirtyTwoCloudItems) {
  for (int item = 0; item < 40; ++item)
    aliases.cloud["/cloud/" + std::to_string(item)] = "/cloud/" + std::to_string(item + 1);
  EXPECT_EQ(resolve("/cloud/0"), "/cloud/32");
}

TEST_F(ResolvedOriginalPath, followsAFinderAlias) {
  std::string file = folder.file("f", "");
  aliases.aliases = {{file, "/original"}};
  EXPECT_EQ(resolve(file), "/original");
  fs::create_symlink(file, folder.path("l"));
  EXPECT_EQ(resolve(folder.path("l")), file) << "a link is never asked for an alias";
}

class FolderType : public ::testing::Test {
protected:
  kwtest::ScratchFolder folder;
  kwtest::FakeLaunchServices registry;

  static kw::KWFolderType type(const std::string &path) {
    return kw::folderTypeAtPath(NS::FileManager::defaultManager(), path);
  }
};

TEST_F(FolderType, isFirstOfAllByExtension) {
  EXPECT_EQ(type("/x/X.photolibrary"), 3u);
  EXPECT_EQ(type("/x/X.photoslibrary"), 8u);
  EXPECT_EQ(type("/x/X.migratedphotolibrary"), 4u);
  EXPECT_TRUE(registry.requests.empty()) << "the registry is not asked";
  EXPECT_EQ(type("/x/X.PhotosLibrary"), 0u);
}

TEST_F(FolderType, isThenByTheRegistrysFileType) {
  registry.items = {{"/a", {0, "APPL"}}, {"/b", {2, "PBLb"}}, {"/c", {0, "iPlb"}}};
  EXPECT_EQ(type("/a"), 2u);
  EXPECT_EQ(type("/b"), 5u);
  EXPECT_EQ(type("/c"), 3u);
  EXPECT_EQ(registry.requests, (std::vector<std::uint32_t>{6, 6, 6}));
}

TEST_F(FolderType, ofAPlainFolderTellsMusicLibraries) {
  for (const char *name :
       {"iTunes Library.xml", "iTunes Music Library.xml", "iTunes Library.itl"}) {
    kwtest::ScratchFolder library;
    registry.items[library.path()] = {};
    EXPECT_EQ(type(library.path()), 0u);
    library.file(name, "");
    EXPECT_EQ(type(library.path()), 7u) << name;
  }
}

TEST_F(FolderType, ofAPackageTellsOneLibraryFromTheOthers) {
  for (const char *path : {"/x/A.aplibrary", "/x/P.approject/inner", "/x/P.approject"})
    registry.items[path] = {NS::LSItemInfoIsPackage, ""};
  EXPECT_EQ(type("/x/A.aplibrary"), 6u);
  EXPECT_EQ(type("/x/P.approject"), 6u);
  EXPECT_EQ(type("/x/P.approject/inner"), 6u) << "anything below such a project";
  registry.items["/x/A.aplibrary/inner"] = {NS::LSItemInfoIsPackage, ""};
  EXPECT_EQ(type("/x/A.aplibrary/inner"), 1u);
  registry.items["/x/B.bundle"] = {NS::LSItemInfoIsPackage, "BNDL"};
  EXPECT_EQ(type("/x/B.bundle"), 1u);
}

TEST_F(FolderType, ofAMissingPathIsOther) {
  EXPECT_EQ(type("/no/such/folder"), 0u);
}

TEST(FolderTypeWithoutARegistry, isOtherForAllButTheExtensions) {
  kwtest::ScratchFolder folder;
  folder.file("iTunes Library.itl", "");
  EXPECT_EQ(kw::folderTypeAtPath(NS::FileManager::defaultManager(), folder.path()), 0u);
  EXPECT_EQ(kw::folderTypeAtPath(NS::FileManager::defaultManager(), "/x.photoslibrary"), 8u);
  EXPECT_EQ(kw::resolvedOriginalPath(NS::FileManager::defaultManager(), folder.path()),
            folder.path());
}

} // namespace
