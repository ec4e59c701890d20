// The login items of all users, and a lack of descriptors for them.
#include "Foundation/Desktop/SharedFileList.h"

#include "Support/FakeFileContents.h"
#include "Support/ForwardingFileManager.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Text/PathUtilities.h"

#include <gtest/gtest.h>

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

TEST_F(LoginItems, withAnImmenseEntryHaveNoName) {
  contents.files["/etc/xdg/autostart/a.desktop"].append(3u << 19, '\n');
  auto items = list()->copySnapshot();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0]->displayName(), std::nullopt);
  EXPECT_EQ(items[1]->displayName(), "B");
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
