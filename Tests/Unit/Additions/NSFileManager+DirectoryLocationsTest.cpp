// Standard and scratch folders.
#include "Additions/NSFileManager+DirectoryLocations.h"

#include "Foundation/Desktop/Bundle.h"
#include "Support/FakeItemServices.h"
#include "Support/ForwardingFileManager.h"
#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

class FakeBundle final : public NS::Bundle {
public:
  std::optional<std::string> executable;

  std::string localizedStringForKey(const std::string &key, const std::optional<std::string> &value,
                                    const std::optional<std::string> &table) override {
    EXPECT_EQ(value, "");
    EXPECT_EQ(table, std::nullopt);
    return "translated: " + key;
  }
  std::optional<std::string> infoString(const std::string &key) override {
    return key == "CFBundleExecutable" ? executable : std::nullopt;
  }
  std::optional<std::string> executablePath() override { return std::nullopt; }

private:
  NS::ScopedOverride<NS::Bundle> override_{*this};
};

class DirectoryLocations : public ::testing::Test {
protected:
  kwtest::ScratchFolder scratch;
  kwtest::FakeStandardFolders folders;
  FakeBundle bundle;
  kwtest::LogRecorder log;
  NS::FileManager &manager = NS::FileManager::defaultManager();
  std::optional<NS::Error> error;

  void SetUp() override {
    folders.folders = {scratch.path("support"), scratch.path("second")};
    folders.temporary = scratch.path("tmp/");
    fs::create_directory(folders.temporary);
    error.emplace("before", 9);
  }

  std::optional<std::string> findOrCreate(const std::optional<std::string> &component) {
    return kw::findOrCreateDirectory(manager, NS::SearchPathDirectory::ApplicationSupport,
                                     NS::UserDomainMask, component, &error);
  }
  void expectLocationError(std::int64_t code, const std::string &description) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), "DirectoryLocationDomain");
    EXPECT_EQ(error->code(), code);
    EXPECT_EQ(error->localizedDescription(), description);
    EXPECT_EQ(error->userInfo().at("NSSearchPathDirectory"), NS::UserInfoValue(std::uint64_t{14}));
    EXPECT_EQ(error->userInfo().at("NSSearchPathDomainMask"), NS::UserInfoValue(std::uint64_t{1}));
  }
};

TEST_F(DirectoryLocations, makeAMissingFolderOnce) {
  std::string expected = scratch.path("support/Deep/App");
  EXPECT_EQ(findOrCreate("Deep/App"), expected);
  EXPECT_TRUE(fs::is_directory(expected));
  EXPECT_FALSE(error) << "success clears the slot";
  std::ofstream(expected + "/kept") << "x";
  EXPECT_EQ(findOrCreate("Deep/App"), expected);
  EXPECT_TRUE(fs::exists(expected + "/kept"));
  EXPECT_TRUE(folders.expanded);
}

TEST_F(DirectoryLocations, takeTheFolderItselfWithoutAComponent) {
  EXPECT_EQ(findOrCreate(std::nullopt), scratch.path("support"));
}

TEST_F(DirectoryLocations, failWithoutAFolder) {
  folders.folders.clear();
  EXPECT_EQ(findOrCreate("App"), std::nullopt);
  expectLocationError(0, "No path found for directory in domain.");
}

TEST_F(DirectoryLocations, failAtThePathOfAFile) {
  scratch.file("support", "");
  EXPECT_EQ(findOrCreate(std::nullopt), std::nullopt);
  expectLocationError(1, "translated: File exists at requested directory location.");
}

TEST_F(DirectoryLocations, passTheManagersErrorOut) {
  scratch.file("support", "");
  EXPECT_EQ(findOrCreate("App"), std::nullopt);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), NS::CocoaErrorDomain);
}

TEST_F(DirectoryLocations, needNoSlot) {
  folders.folders.clear();
  EXPECT_EQ(kw::findOrCreateDirectory(manager, NS::SearchPathDirectory::Caches, NS::LocalDomainMask,
                                      "App", nullptr),
            std::nullopt);
}

TEST_F(DirectoryLocations, giveTheSupportFolderOfAnApplication) {
  EXPECT_EQ(kw::userApplicationSupportDirectoryWithAppName(manager, "App"),
            scratch.path("support/App"));
  EXPECT_EQ(folders.directory, NS::SearchPathDirectory::ApplicationSupport);
  EXPECT_EQ(folders.domain, NS::UserDomainMask);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(DirectoryLocations, logASupportFolderThatCannotBeHad) {
  folders.folders.clear();
  EXPECT_EQ(kw::userApplicationSupportDirectoryWithAppName(manager, "App"), std::nullopt);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].starts_with(
      "Unable to find or create application support directory:\nError Domain="))
      << log.lines()[0];
}

TEST_F(DirectoryLocations, nameTheSupportFolderAfterTheExecutable) {
  bundle.executable.emplace("Tool");
  EXPECT_EQ(kw::userApplicationSupportDirectory(manager), scratch.path("support/Tool"));
  bundle.executable.reset();
  EXPECT_EQ(kw::userApplicationSupportDirectory(manager), scratch.path("support"));
}

TEST_F(DirectoryLocations, emptyATemporaryFolderThatIsThere) {
  std::string expected = scratch.path("tmp/work");
  EXPECT_EQ(kw::temporaryDirectoryWithName(manager, "work"), expected);
  std::ofstream(expected + "/old") << "x";
  EXPECT_EQ(kw::temporaryDirectoryWithName(manager, "work"), expected);
  EXPECT_TRUE(fs::is_directory(expected));
  EXPECT_TRUE(fs::is_empty(expected));
  EXPECT_EQ(kw::temporaryDirectoryWithName(manager, "a/b"), scratch.path("tmp/a/b"));
}

TEST_F(DirectoryLocations, replaceALinkAndNotItsTarget) {
  scratch.file("precious", "x");
  fs::create_symlink("..", scratch.path("tmp/work"));
  EXPECT_EQ(kw::temporaryDirectoryWithName(manager, "work"), scratch.path("tmp/work"));
  EXPECT_FALSE(fs::is_symlink(scratch.path("tmp/work")));
  EXPECT_EQ(scratch.content("precious"), "x");
}

TEST_F(DirectoryLocations, refuseNamesThatLeadOutOfTheTemporaryFolder) {
  scratch.file("tmp/kept", "x");
  for (const char *name : {"", "/", ".", "..", "a/../..", "./", "../tmp", "a/."})
    EXPECT_EQ(kw::temporaryDirectoryWithName(manager, name), std::nullopt) << name;
  EXPECT_EQ(scratch.content("tmp/kept"), "x");
  EXPECT_EQ(log.lines().size(), 8u);
  EXPECT_EQ(log.lines()[3], "Failed to create directory " + scratch.path("tmp/.."));
}

TEST_F(DirectoryLocations, logATemporaryFolderThatCannotBeRemoved) {
  class : public kwtest::ForwardingFileManager {
  public:
    bool removeItemAtURL(const NS::URL &, NS::ErrorSlot) override { return false; }
  } refusing;
  scratch.file("tmp/work", "");
  EXPECT_EQ(kw::temporaryDirectoryWithName(refusing, "work"), std::nullopt);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Failed to remove directory " + scratch.path("tmp/work")});
}

TEST_F(DirectoryLocations, logATemporaryFolderThatCannotBeMade) {
  scratch.file("tmp/f", "");
  EXPECT_EQ(kw::temporaryDirectoryWithName(manager, "f/work"), std::nullopt);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Failed to create directory " + scratch.path("tmp/f/work")});
}

} // namespace
