// Bundles in both layouts, and the string tables that come with the program.
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Desktop/Internal/MainBundleFolder.h"

#include "Support/PrivateMounts.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/ResourceShortage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

namespace {

std::string stringTable(const std::string &entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" + entries +
         "</dict></plist>";
}

std::string entry(const std::string &key, const std::string &value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

class BundleTest : public testing::Test {
protected:
  void folder(const std::string &name) { std::filesystem::create_directories(scratch.path(name)); }
  std::string bundlePath() const { return scratch.path("A.app"); }
  // A bundle that has this list in its contents.
  std::shared_ptr<NS::Bundle> bundleWith(const std::string &contents, const std::string &list) {
    std::string path = "A.app/Contents/" + contents;
    folder(path.substr(0, path.rfind('/')));
    scratch.file(path, list);
    return NS::Bundle::bundleWithPath(bundlePath());
  }

  kwtest::ScratchFolder scratch;
};

TEST(MainBundle, holdsTheTextsOfRemoval) {
  NS::Bundle &bundle = NS::Bundle::mainBundle();
  for (const char *key :
       {"ErrorDescRemoving_FailedToLaunchTask", "ErrorDescRemoving_GenericError"}) {
    std::string text = bundle.localizedStringForKey(key, "", "Errors");
    EXPECT_NE(text, key);
    EXPECT_GT(text.size(), 10u);
  }
}

TEST(MainBundle, givesTheKeyOrTheValueForAKeyWithoutAnEntry) {
  NS::Bundle &bundle = NS::Bundle::mainBundle();
  EXPECT_EQ(bundle.localizedStringForKey("unknown", "", "Errors"), "unknown");
  EXPECT_EQ(bundle.localizedStringForKey("unknown", std::nullopt, "NoTable"), "unknown");
  EXPECT_EQ(bundle.localizedStringForKey("unknown", "instead", std::nullopt), "instead");
  EXPECT_EQ(bundle.localizedStringForKey("unknown", "instead", "../Errors"), "instead");
}

TEST(MainBundle, hasItsFixedPlaceWhereTheSystemDoesNotNameTheProgram) {
  KW_REQUIRE_ROOT();
  EXPECT_EQ(kwtest::withPrivateMounts([]() -> std::string {
              if (!kwtest::mountMemory("/proc"))
                return "the system still names it";
              return NS::mainBundleFolder().starts_with('/') ? "" : "no folder";
            }),
            "");
}

TEST(MainBundle, isAskedByThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread)
    threads.emplace_back([] {
      for (const char *table : {"Errors", "Localizable", "NoTable", "Other"})
        EXPECT_FALSE(
            NS::Bundle::mainBundle().localizedStringForKey("key", std::nullopt, table).empty());
    });
  for (std::thread &thread : threads)
    thread.join();
}

TEST_F(BundleTest, aMissingFolderAndAFileAreNotBundles) {
  EXPECT_EQ(NS::Bundle::bundleWithPath(bundlePath()), nullptr);
  EXPECT_EQ(NS::Bundle::bundleWithPath(scratch.file("A.app", "")), nullptr);
  EXPECT_EQ(NS::Bundle::bundleWithPath(scratch.path() + std::string("\0x", 2)), nullptr);
}

TEST_F(BundleTest, aDeepBundleKeepsEverythingUnderContents) {
  folder("A.app/Contents/MacOS");
  folder("A.app/Contents/Resources/en.lproj");
  scratch.file("A.app/Contents/Info.plist",
               stringTable(entry("CFBundleExecutable", "tool") +
                           entry("CFBundleIdentifier", "org.example.a") +
                           "<key>Number</key><integer>1</integer>"));
  scratch.file("A.app/Contents/MacOS/tool", "");
  scratch.file("A.app/Contents/Resources/Errors.strings", stringTable(entry("key", "text")));
  scratch.file("A.app/Contents/Resources/en.lproj/Localizable.strings",
               stringTable(entry("hello", "Hello")));
  auto bundle = NS::Bundle::bundleWithPath(bundlePath());
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->infoString("CFBundleIdentifier"), "org.example.a");
  EXPECT_EQ(bundle->infoString("Number"), std::nullopt);
  EXPECT_EQ(bundle->infoString("Absent"), std::nullopt);
  EXPECT_EQ(bundle->executablePath(), bundlePath() + "/Contents/MacOS/tool");
  EXPECT_EQ(bundle->localizedStringForKey("key", "", "Errors"), "text");
  EXPECT_EQ(bundle->localizedStringForKey("hello", "", std::nullopt), "Hello");
}

TEST_F(BundleTest, aFlatBundleKeepsEverythingAtItsTop) {
  folder("A.app");
  scratch.file("A.app/Info.plist", stringTable(entry("CFBundleExecutable", "tool")));
  scratch.file("A.app/tool", "");
  auto bundle = NS::Bundle::bundleWithPath(bundlePath() + "/");
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->executablePath(), bundlePath() + "/tool");
}

TEST_F(BundleTest, withoutAnInformationListTheExecutableHasTheBundlesName) {
  folder("A.app/Contents/MacOS");
  auto bundle = NS::Bundle::bundleWithPath(bundlePath());
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->infoString("CFBundleIdentifier"), std::nullopt);
  EXPECT_EQ(bundle->executablePath(), std::nullopt);
  scratch.file("A.app/Contents/MacOS/A", "");
  EXPECT_EQ(bundle->executablePath(), bundlePath() + "/Contents/MacOS/A");
}

TEST_F(BundleTest, aFolderIsNotItsExecutable) {
  folder("A.app/Contents/MacOS/A");
  auto bundle = NS::Bundle::bundleWithPath(bundlePath());
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->executablePath(), std::nullopt);
}

TEST_F(BundleTest, anEntryOfATableWithoutATextIsPassedOver) {
  auto bundle =
      bundleWith("Resources/Errors.strings", stringTable("<key>key</key><integer>1</integer>"));
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->localizedStringForKey("key", "instead", "Errors"), "instead");
}

TEST_F(BundleTest, anExecutableNameCannotLeadOutOfTheBundle) {
  folder("A.app/Contents/MacOS");
  scratch.file("outside", "");
  scratch.file("A.app/Contents/Info.plist",
               stringTable(entry("CFBundleExecutable", "../../../outside")));
  auto bundle = NS::Bundle::bundleWithPath(bundlePath());
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->executablePath(), std::nullopt);
}

TEST_F(BundleTest, anInformationListIsNotMissingForLackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  auto bundle = bundleWith("Info.plist", stringTable(entry("CFBundleIdentifier", "x")));
  ASSERT_NE(bundle, nullptr);
  {
    kwtest::FewDescriptorsLeft few;
    EXPECT_THROW(bundle->infoString("CFBundleIdentifier"), NS::ResourceShortage);
    EXPECT_THROW(bundle->executablePath(), NS::ResourceShortage);
  }
  EXPECT_EQ(bundle->infoString("CFBundleIdentifier"), "x");
}

TEST_F(BundleTest, aTableThatCouldNotBeReadForLackOfDescriptorsIsReadLater) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  auto bundle = bundleWith("Resources/Errors.strings", stringTable(entry("key", "text")));
  ASSERT_NE(bundle, nullptr);
  {
    kwtest::FewDescriptorsLeft few;
    EXPECT_EQ(bundle->localizedStringForKey("key", "", "Errors"), "key");
  }
  EXPECT_EQ(bundle->localizedStringForKey("key", "", "Errors"), "text");
}

TEST_F(BundleTest, isOpenedThroughALink) {
  folder("Real/Contents");
  scratch.file("Real/Contents/Info.plist", stringTable(entry("CFBundleIdentifier", "x")));
  std::filesystem::create_directory_symlink(scratch.path("Real"), bundlePath());
  auto bundle = NS::Bundle::bundleWithPath(bundlePath());
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->infoString("CFBundleIdentifier"), "x");
}

} // namespace
