// The handlers for programs that start by themselves, with every tool and file
// in memory.
#include "Agent/KWPriviligedOperations.h"

#include "Support/FakeFileContents.h"
#include "Support/FakeLaunchd.h"
#include "Support/LogRecorder.h"
#include "Support/RecordingFileManager.h"
#include "Support/RecordingTaskRunner.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Desktop/SharedFileList.h"
#include "Foundation/Processes/Process.h"
#include "Foundation/PropertyLists/PropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using Lines = std::vector<std::vector<std::string>>;

constexpr const char *conf = "/etc/launchd.conf";

class StoppedProcess : public NS::Process {
public:
  std::vector<int> exits;
  void exit(int status) override { exits.push_back(status); }
  void beforeExit(std::function<void()>) override {}
  void installSignalDispositions() override {}
};

struct FakeItem : NS::SharedFileListItem {
  std::int32_t resolve(std::uint32_t flags, std::optional<NS::URL> &url) override {
    EXPECT_EQ(flags, 3u);
    if (!target)
      return -43;
    url = NS::URL::fileURLWithPath(*target, false);
    return 0;
  }
  std::optional<std::string> displayName() override { return name; }

  std::optional<std::string> target, name;
};

class FakeList : public NS::SharedFileList, public NS::SharedFileLists {
public:
  std::vector<std::shared_ptr<FakeItem>> items;
  std::vector<NS::SharedFileListItem *> removed;
  std::vector<std::int32_t> statuses; // of the removals in their order
  bool exists = true;

  void add(std::optional<std::string> target, std::optional<std::string> name) {
    items.push_back(std::make_shared<FakeItem>());
    items.back()->target = std::move(target);
    items.back()->name = std::move(name);
  }
  std::shared_ptr<NS::SharedFileList> globalLoginItems() override {
    return exists ? std::shared_ptr<NS::SharedFileList>(this, [](void *) {}) : nullptr;
  }
  std::vector<std::shared_ptr<NS::SharedFileListItem>> copySnapshot() override {
    return {items.begin(), items.end()};
  }
  std::int32_t removeItem(NS::SharedFileListItem &item) override {
    removed.push_back(&item);
    return removed.size() <= statuses.size() ? statuses[removed.size() - 1] : 0;
  }
};

class StartupHandlersTest : public testing::Test {
protected:
  kw::KWFlagReply reply() {
    return [this](bool success, const std::optional<NS::Error> &error) {
      EXPECT_FALSE(error);
      replies.push_back(success);
    };
  }
  void edit(const std::string &library) {
    operations.removeLibraryFromLauchdConf(library, reply());
  }
  void configuration(const std::string &text) {
    contents.files[conf] = text;
    files.existing.insert(conf);
  }

  kwtest::RecordingTaskRunner runner;
  kwtest::FakeLaunchd launchd;
  kwtest::RecordingFileManager files;
  kwtest::FakeFileContents contents;
  kwtest::LogRecorder log;
  StoppedProcess process;
  FakeList list;
  NS::ScopedOverride<kw::KWTaskRunner> runnerOverride{runner};
  NS::ScopedOverride<NS::Launchd> launchdOverride{launchd};
  NS::ScopedOverride<NS::FileManager> filesOverride{files};
  NS::ScopedOverride<NS::FileContents> contentsOverride{contents};
  NS::ScopedOverride<NS::Process> processOverride{process};
  NS::ScopedOverride<NS::SharedFileLists> listsOverride{list};
  kw::KWPriviligedOperations operations;
  std::vector<bool> replies;
};

TEST_F(StartupHandlersTest, theAgentsOwnListEndsTheProcessWithoutAReply) {
  // Even failures do not stop it.
  files.failing["/Library/PrivilegedHelperTools/org.keepwell.pro.agent"] = 1;
  operations.removeLaunchdAgentAtPath("/Library/LaunchDaemons/org.keepwell.pro.agent.plist",
                                      reply());
  EXPECT_THAT(files.calls,
              ElementsAre("remove /Library/PrivilegedHelperTools/org.keepwell.pro.agent",
                          "remove /Library/LaunchDaemons/org.keepwell.pro.agent.plist",
                          "remove /var/run/org.keepwell.agent.socket"));
  EXPECT_THAT(process.exits, ElementsAre(0));
  EXPECT_TRUE(replies.empty());
  EXPECT_TRUE(runner.commandLines().empty());
}

TEST_F(StartupHandlersTest, theAgentsOwnListWrittenAnotherWayIsAnyOtherJob) {
  for (const char *path : {"/Library/LaunchDaemons/org.keepwell.pro.agent.plist/",
                           "/Library//LaunchDaemons/org.keepwell.pro.agent.plist",
                           "/Library/LaunchDaemons/./org.keepwell.pro.agent.plist"}) {
    operations.removeLaunchdAgentAtPath(path, reply());
    EXPECT_EQ(runner.commandLines().back(),
              (std::vector<std::string>{"/bin/launchctl", "unload", path}));
  }
  EXPECT_TRUE(process.exits.empty());
  EXPECT_THAT(replies, ElementsAre(true, true, true));
}

TEST_F(StartupHandlersTest, aJobIsRemovedEnabledAndDisabledThroughTheManager) {
  contents.files["/j.plist"] = "<dict><key>Label</key><string>j</string></dict>";
  operations.enableLaunchdAgentAtPath("/j.plist", reply());
  launchd.jobs.insert("j");
  operations.disableLaunchdAgentAtPath("/j.plist", reply());
  operations.removeLaunchdAgentAtPath("/j.plist", reply());
  runner.outputs["/bin/launchctl"] = "no";
  operations.disableLaunchdAgentAtPath("/j.plist", reply());
  operations.removeLaunchdAgentAtPath("/j.plist", reply());
  EXPECT_EQ(runner.commandLines(), (Lines{{"/bin/launchctl", "load", "-w", "/j.plist"},
                                          {"/bin/launchctl", "unload", "-w", "/j.plist"},
                                          {"/bin/launchctl", "stop", "j"},
                                          {"/bin/launchctl", "unload", "/j.plist"},
                                          {"/bin/launchctl", "unload", "-w", "/j.plist"},
                                          {"/bin/launchctl", "unload", "/j.plist"}}));
  EXPECT_THAT(replies, ElementsAre(true, true, true, false, false));
}

TEST_F(StartupHandlersTest, aJobWhoseListCannotBeReadNowIsNotAnswered) {
  contents.files["/j.plist"] = "<dict><key>Label</key><string>j</string></dict>";
  launchd.jobs.insert("j");
  contents.readFailure = EMFILE;
  EXPECT_THROW(operations.disableLaunchdAgentAtPath("/j.plist", reply()), NS::ResourceShortage);
  EXPECT_THROW(operations.enableLaunchdAgentAtPath("/j.plist", reply()), NS::ResourceShortage);
  EXPECT_TRUE(runner.commandLines().empty());
  EXPECT_TRUE(replies.empty());
}

TEST_F(StartupHandlersTest, aStartupItemsNameGoesInQuotesAndTheStatusIsIgnored) {
  runner.statuses["/sbin/SystemStarter"] = 9;
  operations.startStartupItem("My \"Item\" %@", reply());
  operations.stopStartupItem("", reply());
  EXPECT_EQ(runner.commandLines(), (Lines{{"/sbin/SystemStarter", "start", "\"My \"Item\" %@\""},
                                          {"/sbin/SystemStarter", "stop", "\"\""}}));
  EXPECT_FALSE(runner.runs()[0].suppressErrorOutput);
  EXPECT_THAT(replies, ElementsAre(true, true));
}

TEST_F(StartupHandlersTest, aLoginItemOfTheServiceManagerIsRemovedFromItsDatabase) {
  std::string path = "/private/var/db/launchd.db/com.apple.launchd.peruser." +
                     std::to_string(::getuid()) + "/overrides.plist";
  NS::PropertyList::Dictionary former = {{"a", true}, {"b", true}};
  contents.files[path] = *NS::dataWithPropertyList(NS::PropertyList(former), nullptr);
  operations.removeSMLoginItem("a", reply());
  EXPECT_EQ(NS::propertyListWithData(contents.files[path], nullptr),
            NS::PropertyList(NS::PropertyList::Dictionary{{"b", true}}));
  contents.writeFailure = ENOSPC;
  operations.removeSMLoginItem("b", reply());
  EXPECT_THAT(replies, ElementsAre(true, false));
}

TEST_F(StartupHandlersTest, withoutAListOfLoginItemsThereIsNothingToRemove) {
  list.exists = false;
  list.add("/A.app", "A");
  operations.removeGlobalLoginItemForAppWithPath("/A.app", reply());
  EXPECT_TRUE(list.removed.empty());
  EXPECT_THAT(replies, ElementsAre(true));
}

TEST_F(StartupHandlersTest, everyLoginItemOfTheApplicationGoesAndTheLastDecides) {
  list.add("/A.app", "x");
  list.add("/B.app", "/A.app");
  list.add("/A.app", "y");
  list.statuses = {5, 0};
  operations.removeGlobalLoginItemForAppWithPath("/A.app", reply());
  EXPECT_THAT(list.removed, ElementsAre(list.items[0].get(), list.items[2].get()));
  list.removed.clear();
  list.statuses = {0, 5};
  operations.removeGlobalLoginItemForAppWithPath("/A.app/", reply());
  EXPECT_EQ(list.removed.size(), 2u);
  EXPECT_THAT(replies, ElementsAre(true, false));
}

TEST_F(StartupHandlersTest, anItemThatCannotBeResolvedGoesByItsNameAlone) {
  list.add(std::nullopt, "A");
  list.add(std::nullopt, "/A.app");
  list.add(std::nullopt, std::nullopt);
  operations.removeGlobalLoginItemForAppWithPath("/A.app", reply());
  EXPECT_THAT(list.removed, ElementsAre(list.items[1].get()));
  // The very text that the client sent.
  operations.removeGlobalLoginItemForAppWithPath("/A.app/", reply());
  EXPECT_EQ(list.removed.size(), 1u);
  EXPECT_THAT(replies, ElementsAre(true, true));
}

TEST_F(StartupHandlersTest, anotherSpellingOfTheSameNameIsTheSameApplication) {
  list.add("/Caf\xc3\xa9.app", "x");
  operations.removeGlobalLoginItemForAppWithPath("/Cafe\xcc\x81.app", reply());
  EXPECT_EQ(list.removed.size(), 1u);
}

TEST_F(StartupHandlersTest, aLoginItemWithThePathOfTheApplicationInItsOwnStays) {
  for (const char *path : {"/A.app/Contents/B.app", "/x/A.app", "/A.apps"})
    list.add(path, "x");
  operations.removeGlobalLoginItemForAppWithPath("/A.app", reply());
  EXPECT_TRUE(list.removed.empty());
}

TEST_F(StartupHandlersTest, theConfigurationIsEditedWithABackupAndOneReply) {
  configuration("umask \"022\"\n\nsetenv DYLD_INSERT_LIBRARIES \"/a:/x\"\nlimit 1");
  edit("/x");
  EXPECT_EQ(contents.files[conf], "umask 022\nsetenv DYLD_INSERT_LIBRARIES \"/a\"\nlimit 1\n");
  EXPECT_THAT(files.calls, ElementsAre("remove /etc/launchd.conf.prev",
                                       "copy /etc/launchd.conf /etc/launchd.conf.prev"));
  EXPECT_THAT(replies, ElementsAre(true));
  EXPECT_THAT(
      log.lines(),
      ElementsAre("/etc/launchd.conf before edit: umask 022\n\nsetenv DYLD_INSERT_LIBRARIES /a:/x\n"
                  "limit 1\nafter: umask 022\nsetenv DYLD_INSERT_LIBRARIES \"/a\"\nlimit 1\n\n"));
}

TEST_F(StartupHandlersTest, aConfigurationOfNothingButTheLibraryBecomesEmpty) {
  configuration("setenv DYLD_INSERT_LIBRARIES /x\n");
  edit("/x");
  EXPECT_EQ(contents.files[conf], "");
  EXPECT_THAT(replies, ElementsAre(true));
}

TEST_F(StartupHandlersTest, aMissingConfigurationIsAnsweredThreeTimesAndCreatedEmpty) {
  edit("/x");
  EXPECT_THAT(replies, ElementsAre(true, true, true));
  EXPECT_EQ(contents.files.at(conf), "");
}

TEST_F(StartupHandlersTest, anEmptyConfigurationIsAnsweredTwice) {
  configuration("");
  edit("/x");
  EXPECT_THAT(replies, ElementsAre(true, true));
  EXPECT_EQ(contents.files[conf], "");
}

TEST_F(StartupHandlersTest, aConfigurationThatCannotBeWrittenIsAFailure) {
  configuration("umask 022\n");
  contents.writeFailure = 28;
  edit("/x");
  EXPECT_THAT(replies, ElementsAre(false));
  contents.files.clear();
  files.existing.clear();
  edit("/x");
  EXPECT_THAT(replies, ElementsAre(false, true, true, false));
}

TEST_F(StartupHandlersTest, aBackupThatFailsStopsNothing) {
  configuration("umask 022\n");
  files.failing[conf] = 28;
  files.failing["/etc/launchd.conf.prev"] = 28;
  edit("/x");
  EXPECT_THAT(replies, ElementsAre(true));
}

TEST_F(StartupHandlersTest, aConfigurationOfInvalidUTF8IsBackedUpAndEmptied) {
  configuration("\xff");
  edit("/x");
  EXPECT_EQ(contents.files[conf], "");
  EXPECT_THAT(files.calls, ElementsAre("remove /etc/launchd.conf.prev",
                                       "copy /etc/launchd.conf /etc/launchd.conf.prev"));
  EXPECT_THAT(replies, ElementsAre(true, true));
}

TEST_F(StartupHandlersTest, aConfigurationThatOnlyALimitRefusesIsLeftAlone) {
  for (int limit : {EFBIG, EMFILE, ENFILE, ENOMEM}) {
    configuration("umask 022\n");
    files.existing.insert("/etc/launchd.conf.prev");
    contents.readFailure = limit;
    edit("/x");
  }
  EXPECT_EQ(contents.files[conf], "umask 022\n");
  EXPECT_EQ(contents.writes, 0);
  EXPECT_TRUE(files.calls.empty());
  EXPECT_THAT(replies, ElementsAre(false, false, false, false));
  ASSERT_EQ(log.lines().size(), 4u);
  EXPECT_TRUE(log.lines()[0].starts_with("/etc/launchd.conf is left as it is: ")) << log.lines()[0];
}

TEST_F(StartupHandlersTest, theBackupOfAnEmptyConfigurationReplacesAnEarlierOne) {
  configuration("");
  files.existing.insert("/etc/launchd.conf.prev");
  edit("/x");
  EXPECT_THAT(files.calls, ElementsAre("remove /etc/launchd.conf.prev",
                                       "copy /etc/launchd.conf /etc/launchd.conf.prev"));
  EXPECT_THAT(replies, ElementsAre(true, true));
}

TEST_F(StartupHandlersTest, aMissingConfigurationLeavesNoEarlierBackup) {
  files.existing.insert("/etc/launchd.conf.prev");
  files.failing[conf] = ENOENT;
  edit("/x");
  EXPECT_FALSE(files.existing.contains("/etc/launchd.conf.prev"));
  EXPECT_THAT(replies, ElementsAre(true, true, true));
}

TEST_F(StartupHandlersTest, aReceiptIsForgottenThroughPkgutil) {
  operations.removePackageWithID("org.example.p", reply());
  runner.statuses["/usr/sbin/pkgutil"] = 1;
  operations.removePackageWithID("", reply());
  EXPECT_EQ(runner.commandLines(), (Lines{{"/usr/sbin/pkgutil", "--forget", "org.example.p"},
                                          {"/usr/sbin/pkgutil", "--forget", ""}}));
  EXPECT_THAT(replies, ElementsAre(true, false));
}

TEST_F(StartupHandlersTest, aBinaryIsSlimmedThroughDitto) {
  operations.slimBinaryWithPath("/missing", {"--arch", "x86_64"}, reply());
  files.existing.insert("/p/bin");
  runner.statuses["/usr/bin/ditto"] = 1;
  operations.slimBinaryWithPath("/p/bin", {"--arch", "x86_64"}, reply());
  EXPECT_EQ(runner.commandLines(),
            (Lines{{"/usr/bin/ditto", "--arch", "x86_64", "/p/bin", "/p/bin.ditto"}}));
  EXPECT_THAT(replies, ElementsAre(true, false));
}

TEST_F(StartupHandlersTest, anExtensionWithoutAnIdentifierStays) {
  operations.removeKextAtPath("/nowhere.kext", reply());
  EXPECT_THAT(replies, ElementsAre(false));
  EXPECT_TRUE(runner.commandLines().empty());
  EXPECT_TRUE(files.calls.empty());
}

TEST_F(StartupHandlersTest, aNullReplyIsSkipped) {
  operations.removeLaunchdAgentAtPath("/j.plist", nullptr);
  operations.enableLaunchdAgentAtPath("/j.plist", nullptr);
  operations.disableLaunchdAgentAtPath("/j.plist", nullptr);
  operations.removeSMLoginItem("a", nullptr);
  operations.startStartupItem("a", nullptr);
  operations.stopStartupItem("a", nullptr);
  operations.removeGlobalLoginItemForAppWithPath("/a", nullptr);
  operations.removePackageWithID("a", nullptr);
  operations.removeKextAtPath("/a", nullptr);
  operations.slimBinaryWithPath("/a", {}, nullptr);
  operations.removeLibraryFromLauchdConf("/a", nullptr);
  EXPECT_EQ(contents.files.at(conf), "");
}

TEST_F(StartupHandlersTest, softwareIsRemovedByItsTools) {
  files.existing = {"/p/bin"};
  operations.removePackageWithID("com.example.pkg", reply());
  operations.slimBinaryWithPath("/missing", {"--arch", "x86_64"}, reply());
  operations.removeKextAtPath("/missing.kext", reply());
  runner.statuses["/usr/bin/ditto"] = 1;
  operations.slimBinaryWithPath("/p/bin", {"--arch", "x86_64"}, reply());
  EXPECT_EQ(runner.commandLines(),
            (Lines{{"/usr/sbin/pkgutil", "--forget", "com.example.pkg"},
                   {"/usr/bin/ditto", "--arch", "x86_64", "/p/bin", "/p/bin.ditto"}}));
  EXPECT_THAT(replies, ElementsAre(true, true, false, false));
  operations.removePackageWithID("com.example.pkg", nullptr);
  EXPECT_EQ(replies.size(), 4U);
}

} // namespace
