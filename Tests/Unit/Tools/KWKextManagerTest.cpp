// Unloading and deleting kernel extensions.
#include "Tools/KWKextManager.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Base/SharedInstance.h"
#include "Support/LogRecorder.h"
#include "Support/RecordingTaskRunner.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::vector<std::string>>;

class KextManager : public testing::Test {
protected:
  // A bundle whose information list holds the lines.
  std::string kext(const std::string &lines) const {
    std::filesystem::create_directories(folder.path("Odd Name.kext/Contents/MacOS"));
    folder.file("Odd Name.kext/Contents/MacOS/Odd", "code");
    return infoList(lines);
  }
  std::string infoList(const std::string &lines) const {
    folder.file("Odd Name.kext/Contents/Info.plist",
                "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>" + lines + "</dict></plist>");
    return folder.path("Odd Name.kext");
  }
  std::string message(const std::string &before, const std::string &name) const {
    return before + folder.path(name);
  }

  kwtest::ScratchFolder folder;
  kwtest::LogRecorder log;
  kwtest::RecordingTaskRunner runner;
  NS::ScopedOverride<kw::KWTaskRunner> override{runner};
};

constexpr const char *identifierLines =
    "<key>CFBundleIdentifier</key><string>com.example.odd</string>";

TEST_F(KextManager, unloadsByIdentifierAndDeletes) {
  std::string path = kext(identifierLines);
  std::size_t existingAtUnload = 0;
  runner.onRun = [&](auto &&) { existingAtUnload += std::filesystem::exists(path); };
  EXPECT_TRUE(kw::KWKextManager().removeKextAtPath(path));
  EXPECT_EQ(runner.commandLines(), (Lines{{"/sbin/kextunload", "-p", "-b", "com.example.odd"}}));
  EXPECT_FALSE(runner.runs()[0].suppressErrorOutput);
  EXPECT_EQ(existingAtUnload, 1U) << "deleted only afterwards";
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Will unload kext at path " + path});
}

TEST_F(KextManager, deletesAnExtensionThatCannotBeUnloaded) {
  std::string path = kext(identifierLines);
  runner.statuses["/sbin/kextunload"] = 3;
  EXPECT_TRUE(kw::KWKextManager().removeKextAtPath(path));
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "Will unload kext at path " + path,
                "Failed unload kext with bundle id com.example.odd. Will still just remove kext "
                "file. Will be unloaded on relaunch."}));
}

TEST_F(KextManager, touchesNothingWithoutAnIdentifier) {
  std::filesystem::create_directories(folder.path("plain.kext/Contents"));
  std::string plain = folder.path("plain.kext");
  std::string keyless = kext("<key>CFBundleName</key><string>odd</string>");
  for (const std::string &path : {plain, keyless, folder.path("missing.kext")}) {
    EXPECT_FALSE(kw::KWKextManager().removeKextAtPath(path));
    EXPECT_EQ(log.lines().back(), "Failed to get bundle ID for kext " + path);
  }
  infoList("<key>CFBundleIdentifier</key><integer>1</integer>");
  EXPECT_FALSE(kw::KWKextManager().removeKextAtPath(keyless)) << "a number is no identifier";
  EXPECT_TRUE(runner.runs().empty());
  EXPECT_TRUE(std::filesystem::exists(plain));
  EXPECT_TRUE(std::filesystem::exists(keyless + "/Contents/MacOS/Odd"));
  EXPECT_EQ(log.lines().size(), 8U);
}

TEST_F(KextManager, takesAnUnreadableListForNone) {
  std::string path = kext(identifierLines);
  folder.file("Odd Name.kext/Contents/Info.plist", "<plist><dict><key>CFBundle");
  EXPECT_FALSE(kw::KWKextManager().removeKextAtPath(path));
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_TRUE(runner.runs().empty());
}

TEST_F(KextManager, doesNotTakeALackOfDescriptorsForAMissingIdentifier) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  std::string path = kext(identifierLines);
  {
    kwtest::FewDescriptorsLeft few(1);
    EXPECT_THROW(kw::KWKextManager().removeKextAtPath(path), NS::ResourceShortage);
  }
  EXPECT_TRUE(std::filesystem::exists(path + "/Contents/MacOS/Odd"));
  EXPECT_TRUE(runner.runs().empty());
}

} // namespace
