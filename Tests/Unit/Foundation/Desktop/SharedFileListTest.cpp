// The login items of all users, and a lack of descriptors for them.
#include "Foundation/Desktop/SharedFileList.h"

#include "Support/FakeFileContents.h"
#include "Support/ForwardingFileManager.h"
#include "Support/PrivateMounts.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Text/PathUtilities.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

// A file manager whose folders hold two entries, or cannot be listed.
class Folders : public kwtest::ForwardingFileManager {
public:
  int failure = 0; // an errno value

  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string &path,
                                                                    NS::ErrorSlot error) override {
    if (failure == 0)
      return std::vector<std::string>{"b.desktop", "other", "a.desktop"};
    NS::storeError(error, NS::fileError(failure, path, NS::FileAccess::Reading));
    return std::nullopt;
  }
};

class LoginItems : public testing::Test {
protected:
  LoginItems() {
    contents.files["/etc/xdg/autostart/a.desktop"] = "[Desktop Entry]\nName=A\n";
    contents.files["/etc/xdg/autostart/b.desktop"] = "[Desktop Entry]\nName=B\n";
  }
  static std::shared_ptr<NS::SharedFileList> list() {
    return NS::SharedFileLists::shared().globalLoginItems();
  }
  // The path that an item with this command line opens, or "error" and a number.
  std::string programOf(const std::string &command) {
    contents.files["/etc/xdg/autostart/a.desktop"] = "[Desktop Entry]\nExec=" + command + "\n";
    std::optional<NS::URL> url;
    std::int32_t error = list()->copySnapshot()[0]->resolve(0, url);
    EXPECT_TRUE(!url || !url->hasDirectoryPath());
    return error == 0 ? url.value().path() : "error " + std::to_string(error);
  }

  Folders folders;
  kwtest::FakeFileContents contents;
  NS::ScopedOverride<NS::FileManager> foldersOverride{folders};
  NS::ScopedOverride<NS::FileContents> contentsOverride{contents};
};

TEST_F(LoginItems, areTheEntriesOfTheFolderInOrder) {
  auto items = list()->copySnapshot();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0]->displayName(), "A");
  EXPECT_EQ(items[1]->displayName(), "B");
}

TEST_F(LoginItems, openTheProgramOfTheirCommandLine) {
  EXPECT_EQ(programOf("/bin/sh -c true"), "/bin/sh");
  EXPECT_EQ(NS::lastPathComponent(programOf("sh -c true")), "sh") << "of a folder of programs";
}

TEST_F(LoginItems, openNoProgramThatIsMissing) {
  for (const char *command : {"/nowhere/x", "/usr", "bin/sh", "no-such-program", "\"\""})
    EXPECT_EQ(programOf(command), "error " + std::to_string(ENOENT)) << command;
  for (const char *command : {"", "\"/bin/sh"})
    EXPECT_EQ(programOf(command), "error " + std::to_string(EINVAL)) << command;
}

TEST_F(LoginItems, areNoneWithoutAFolder) {
  for (int failure : {ENOENT, EACCES, EIO}) {
    folders.failure = failure;
    EXPECT_EQ(list(), nullptr) << failure;
  }
}

TEST_F(LoginItems, areNotNoneForLackOfDescriptors) {
  folders.failure = EMFILE;
  EXPECT_THROW(list(), NS::ResourceShortage);
}

TEST_F(LoginItems, withoutAReadableEntryHaveNoName) {
  contents.readFailure = EACCES;
  for (const auto &item : list()->copySnapshot())
    EXPECT_EQ(item->displayName(), std::nullopt);
}

TEST_F(LoginItems, haveNoNameInAnEntryOfMoreThanOneMiB) {
  contents.files["/etc/xdg/autostart/a.desktop"].resize(1u << 20, '\n');
  contents.files["/etc/xdg/autostart/b.desktop"].resize((1u << 20) + 1, '\n');
  auto items = list()->copySnapshot();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0]->displayName(), "A");
  EXPECT_EQ(items[1]->displayName(), std::nullopt);
}

TEST_F(LoginItems, areRemovedWithTheirEntries) {
  KW_REQUIRE_ROOT();
  EXPECT_EQ(kwtest::withPrivateMounts([]() -> std::string {
              if (!kwtest::mountMemory("/etc"))
                return "no folder of its own";
              std::filesystem::create_directories("/etc/xdg/autostart");
              std::ofstream("/etc/xdg/autostart/a.desktop") << "x";
              auto items = list()->copySnapshot();
              std::int32_t first = list()->removeItem(*items[0]);
              if (std::filesystem::exists("/etc/xdg/autostart/a.desktop"))
                return "it is still there";
              std::int32_t second = list()->removeItem(*items[0]);
              return std::to_string(first) + " " + std::to_string(second);
            }),
            "0 " + std::to_string(ENOENT));
}

TEST_F(LoginItems, ofAnotherKindAreNotRemoved) {
  class Other final : public NS::SharedFileListItem {
  public:
    std::int32_t resolve(std::uint32_t, std::optional<NS::URL> &) override { return 0; }
    std::optional<std::string> displayName() override { return {}; }
  } other;
  EXPECT_EQ(list()->removeItem(other), EINVAL);
}

TEST_F(LoginItems, doNotLoseTheirNamesForLackOfDescriptors) {
  contents.readFailure = EMFILE;
  EXPECT_THROW(list()->copySnapshot(), NS::ResourceShortage);
}

TEST(LoginItemsOfThisHost, areNotNoneForLackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  kwtest::SleepWatcher sleeps; // the listing waits for descriptors
  kwtest::FewDescriptorsLeft few;
  EXPECT_THROW(NS::SharedFileLists::shared().globalLoginItems(), NS::ResourceShortage);
}

} // namespace
