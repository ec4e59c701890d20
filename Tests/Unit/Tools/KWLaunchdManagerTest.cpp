// launchctl's command lines, word by word, and the effect of each answer.
#include "Tools/KWLaunchdManager.h"

#include "Support/FakeLaunchd.h"
#include "Support/LogRecorder.h"
#include "Support/RecordingFileManager.h"
#include "Support/RecordingTaskRunner.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Base/SharedInstance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace {

using testing::ElementsAre;
using Lines = std::vector<std::vector<std::string>>;

constexpr const char *launchctl = "/bin/launchctl";
constexpr const char *jobPath = "/Library/LaunchDaemons/a.b.tool.plist";
constexpr const char *toolPath = "/Library/PrivilegedHelperTools/a.b.tool";

class KWLaunchdManagerTest : public testing::Test {
protected:
  // A job list whose label is not its file's name.
  std::string job(const std::string &label = "org.example.job") {
    return scratch.file("job.plist", "<dict><key>Label</key><string>" + label + "</string></dict>");
  }
  void load() { launchd.jobs.insert("org.example.job"); }
  void printOnUnload(const std::string &text) { runner.outputs[launchctl] = text; }

  kwtest::ScratchFolder scratch;
  kwtest::RecordingTaskRunner runner;
  kwtest::FakeLaunchd launchd;
  kwtest::RecordingFileManager files;
  kwtest::LogRecorder log;
  NS::ScopedOverride<kw::KWTaskRunner> runnerOverride{runner};
  NS::ScopedOverride<NS::Launchd> launchdOverride{launchd};
  NS::ScopedOverride<NS::FileManager> filesOverride{files};
  kw::KWLaunchdManager manager;
};

TEST_F(KWLaunchdManagerTest, startsAndStopsByLabel) {
  EXPECT_TRUE(manager.startAgentWithLabel("x"));
  EXPECT_TRUE(manager.stopAgentWithLabel("x"));
  EXPECT_EQ(runner.commandLines(), (Lines{{launchctl, "start", "x"}, {launchctl, "stop", "x"}}));
  for (const auto &run : runner.runs())
    EXPECT_TRUE(run.suppressErrorOutput);
  runner.statuses[launchctl] = 3;
  EXPECT_FALSE(manager.startAgentWithLabel("x"));
  EXPECT_FALSE(manager.stopAgentWithLabel("x"));
}

TEST_F(KWLaunchdManagerTest, nilIsAFailureThatRunsNothing) {
  EXPECT_FALSE(manager.startAgentWithLabel(std::nullopt));
  EXPECT_FALSE(manager.stopAgentWithLabel(std::nullopt));
  EXPECT_FALSE(manager.loadLaunchAgentWithConfigPath(std::nullopt));
  EXPECT_FALSE(manager.unloadLaunchAgentWithConfigPath(std::nullopt));
  EXPECT_FALSE(manager.enableAgentAtPath(std::nullopt));
  EXPECT_FALSE(manager.unloadAgentAtPath(std::nullopt));
  EXPECT_FALSE(manager.disableAgentAtPath(std::nullopt));
  EXPECT_FALSE(manager.removeAgentAtPath(std::nullopt));
  EXPECT_FALSE(manager.removePrivilegedToolWithLabel(std::nullopt));
  EXPECT_FALSE(manager.isLoadedLaunchAgentWithConfigPath(std::nullopt));
  EXPECT_EQ(manager.jobLabelForLaunchdAgent(std::nullopt), std::nullopt);
  EXPECT_EQ(manager.startupApplicationPath(std::nullopt), std::nullopt);
  EXPECT_TRUE(runner.commandLines().empty());
  EXPECT_TRUE(launchd.requests.empty());
  EXPECT_TRUE(files.calls.empty());
}

TEST_F(KWLaunchdManagerTest, asksLaunchdForTheLabelWithinThirtySeconds) {
  load();
  EXPECT_TRUE(manager.isLoadedLaunchAgentWithConfigPath(job()));
  EXPECT_THAT(launchd.requests,
              ElementsAre(kwtest::FakeLaunchd::Request{"GetJob", "org.example.job", 30}));
}

TEST_F(KWLaunchdManagerTest, anyOtherReplyMeansThatNoJobIsLoaded) {
  EXPECT_FALSE(manager.isLoadedLaunchAgentWithConfigPath(job()));
  launchd.otherReply = NS::LaunchDataType::None;
  EXPECT_FALSE(manager.isLoadedLaunchAgentWithConfigPath(job()));
}

TEST_F(KWLaunchdManagerTest, aListWithoutALabelIsNotLoadedAndNotAskedFor) {
  for (const char *content :
       {"", "garbage", "<array/>", "<dict/>", "<dict><key>Label</key><integer>1</integer></dict>"})
    EXPECT_FALSE(manager.isLoadedLaunchAgentWithConfigPath(scratch.file("other.plist", content)));
  EXPECT_FALSE(manager.isLoadedLaunchAgentWithConfigPath(scratch.path("missing")));
  EXPECT_TRUE(launchd.requests.empty());
}

TEST_F(KWLaunchdManagerTest, aLoadedJobIsNotUnloadedForLackOfDescriptorsToReadItsList) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  load();
  std::string path = job();
  for (std::size_t left : {0u, 1u}) {
    kwtest::FewDescriptorsLeft few(left);
    EXPECT_THROW(manager.isLoadedLaunchAgentWithConfigPath(path), NS::ResourceShortage) << left;
    EXPECT_THROW(manager.disableAgentAtPath(path), NS::ResourceShortage) << left;
    EXPECT_THROW(manager.enableAgentAtPath(path), NS::ResourceShortage) << left;
  }
  EXPECT_TRUE(runner.commandLines().empty());
  EXPECT_TRUE(launchd.requests.empty());
}

// Has no descriptor for the second look at a list.
class ShortManager final : public kw::KWLaunchdManager {
public:
  std::optional<std::string>
  jobLabelForLaunchdAgent(const std::optional<std::string> &path) const override {
    if (++looks_ == 2)
      throw NS::ResourceShortage("Too many open files");
    return KWLaunchdManager::jobLabelForLaunchdAgent(path);
  }

private:
  mutable int looks_ = 0;
};

TEST_F(KWLaunchdManagerTest, aJobIsNotUnloadedWithoutTheLabelToStopIt) {
  load();
  EXPECT_THROW(ShortManager().disableAgentAtPath(job()), NS::ResourceShortage);
  EXPECT_TRUE(runner.commandLines().empty());
}

TEST_F(KWLaunchdManagerTest, loadsUnlessLoaded) {
  EXPECT_TRUE(manager.loadLaunchAgentWithConfigPath(job()));
  EXPECT_EQ(runner.commandLines(), (Lines{{launchctl, "load", "-w", job()}}));
  EXPECT_TRUE(runner.runs().front().suppressErrorOutput);
  runner.statuses[launchctl] = 1;
  EXPECT_FALSE(manager.loadLaunchAgentWithConfigPath(job()));
  load();
  EXPECT_TRUE(manager.loadLaunchAgentWithConfigPath(job()));
  EXPECT_EQ(runner.commandLines().size(), 2u);
}

TEST_F(KWLaunchdManagerTest, enablesUnlessLoaded) {
  EXPECT_TRUE(manager.enableAgentAtPath(job()));
  EXPECT_EQ(runner.commandLines(), (Lines{{launchctl, "load", "-w", job()}}));
  load();
  EXPECT_TRUE(manager.enableAgentAtPath(job()));
  EXPECT_EQ(runner.commandLines().size(), 1u);
}

TEST_F(KWLaunchdManagerTest, unloadsAndThenStopsByLabel) {
  load();
  EXPECT_TRUE(manager.unloadAgentAtPath(job()));
  EXPECT_EQ(runner.commandLines(),
            (Lines{{launchctl, "unload", job()}, {launchctl, "stop", "org.example.job"}}));
}

TEST_F(KWLaunchdManagerTest, takesTheStandardOutputAloneForTheFailureOfAnUnload) {
  load();
  EXPECT_TRUE(manager.unloadAgentAtPath(job()));
  ASSERT_FALSE(runner.runs().empty());
  EXPECT_TRUE(runner.runs().front().suppressErrorOutput);
}

TEST_F(KWLaunchdManagerTest, disablesWithAWordMoreAndIgnoresAFailedStop) {
  load();
  runner.statuses[launchctl] = 3;
  EXPECT_TRUE(manager.disableAgentAtPath(job()));
  EXPECT_EQ(runner.commandLines(),
            (Lines{{launchctl, "unload", "-w", job()}, {launchctl, "stop", "org.example.job"}}));
}

TEST_F(KWLaunchdManagerTest, disablingAndUnloadingAnUnloadedJobSucceedsAndRunsNothing) {
  EXPECT_TRUE(manager.disableAgentAtPath(job()));
  EXPECT_TRUE(manager.unloadAgentAtPath(job()));
  EXPECT_TRUE(manager.disableAgentAtPath(scratch.path("missing")));
  EXPECT_TRUE(runner.commandLines().empty());
}

TEST_F(KWLaunchdManagerTest, anyOutputOfAnUnloadIsAFailureWithAnyStatus) {
  load();
  printOnUnload("no such thing\n");
  EXPECT_FALSE(manager.disableAgentAtPath(job()));
  EXPECT_FALSE(manager.unloadAgentAtPath(job()));
  EXPECT_FALSE(manager.unloadLaunchAgentWithConfigPath(jobPath));
  EXPECT_EQ(runner.commandLines(), (Lines{{launchctl, "unload", "-w", job()},
                                          {launchctl, "unload", job()},
                                          {launchctl, "unload", jobPath}}));
  EXPECT_EQ(log.lines(), std::vector<std::string>(3, "Unloading error: no such thing\n"));
}

TEST_F(KWLaunchdManagerTest, removingUnloadsWithoutAskingWhetherItIsLoaded) {
  files.existing = {jobPath};
  EXPECT_TRUE(manager.removeAgentAtPath(jobPath));
  EXPECT_TRUE(launchd.requests.empty());
  EXPECT_EQ(runner.commandLines(), (Lines{{launchctl, "unload", jobPath}}));
  EXPECT_THAT(files.calls, ElementsAre("remove " + std::string(jobPath)));
}

TEST_F(KWLaunchdManagerTest, removingTakesTheToolOfTheFilesNameAndThenTheList) {
  files.existing = {jobPath, toolPath};
  EXPECT_TRUE(manager.removeAgentAtPath(jobPath));
  EXPECT_THAT(files.calls,
              ElementsAre("remove " + std::string(toolPath), "remove " + std::string(jobPath)));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(KWLaunchdManagerTest, aFailedUnloadKeepsTheToolAndTheList) {
  files.existing = {jobPath, toolPath};
  printOnUnload("x");
  EXPECT_FALSE(manager.removeAgentAtPath(jobPath));
  EXPECT_TRUE(files.calls.empty());
}

TEST_F(KWLaunchdManagerTest, aLackOfDescriptorsForTheUnloadKeepsTheToolAndTheList) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  kw::KWTaskRunner real;
  NS::ScopedOverride<kw::KWTaskRunner> realRunner(real);
  files.existing = {jobPath, toolPath};
  files.executable = {launchctl};
  kwtest::FewDescriptorsLeft few(1);
  EXPECT_THROW(manager.removeAgentAtPath(jobPath), NS::ResourceShortage);
  EXPECT_TRUE(files.calls.empty());
}

// A launchd whose tool is there, but cannot be asked.
TEST_F(KWLaunchdManagerTest, aLackOfDescriptorsForTheQuestionIsNotAnAnswer) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  NS::ScopedOverride<NS::Launchd> realLaunchd(NS::Launchd::real());
  std::string path = job();
  kwtest::FewDescriptorsLeft few(2);
  EXPECT_THROW(manager.isLoadedLaunchAgentWithConfigPath(path), NS::ResourceShortage);
  EXPECT_THROW(manager.disableAgentAtPath(path), NS::ResourceShortage);
  EXPECT_TRUE(runner.commandLines().empty());
}

TEST_F(KWLaunchdManagerTest, aToolThatCannotBeRemovedKeepsTheListAndIsLogged) {
  files.existing = {jobPath, toolPath};
  files.failing[toolPath] = EPERM;
  EXPECT_FALSE(manager.removeAgentAtPath(jobPath));
  EXPECT_THAT(files.calls, ElementsAre("remove " + std::string(toolPath)));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(
      log.lines()[0],
      "Removing error: " + NS::fileError(EPERM, toolPath, NS::FileAccess::Writing).description() +
          " file: " + toolPath);
}

TEST_F(KWLaunchdManagerTest, aListThatCannotBeRemovedIsAFailureWithoutAWord) {
  files.failing[jobPath] = EPERM;
  EXPECT_FALSE(manager.removeAgentAtPath(jobPath));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(KWLaunchdManagerTest, aLabelThatIsNotAFileNameNamesNoTool) {
  files.existing = {"/Library/PrivilegedHelperTools", "/Library/PrivilegedHelperTools/.."};
  for (const char *label : {"", "/", ".", "..", "a/b", "../x"})
    EXPECT_TRUE(manager.removePrivilegedToolWithLabel(label)) << label;
  for (const char *path : {"/", "", "..", "/x/../"})
    EXPECT_TRUE(manager.unloadLaunchAgentWithConfigPath(path)) << path;
  EXPECT_TRUE(files.calls.empty());
}

TEST_F(KWLaunchdManagerTest, aDerivedClassReplacesASingleStep) {
  struct AlwaysLoaded : kw::KWLaunchdManager {
    bool isLoadedLaunchAgentWithConfigPath(const std::optional<std::string> &) const override {
      return true;
    }
    std::optional<std::string>
    jobLabelForLaunchdAgent(const std::optional<std::string> &) const override {
      return "label";
    }
  } derived;
  EXPECT_TRUE(derived.enableAgentAtPath("/p"));
  EXPECT_TRUE(derived.disableAgentAtPath("/p"));
  EXPECT_EQ(runner.commandLines(),
            (Lines{{launchctl, "unload", "-w", "/p"}, {launchctl, "stop", "label"}}));
}

} // namespace
