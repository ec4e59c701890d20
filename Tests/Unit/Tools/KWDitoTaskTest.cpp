// Slimming binaries.
#include "Tools/KWDitoTask.h"

#include "Foundation/Base/SharedInstance.h"
#include "Support/ForwardingFileManager.h"
#include "Support/LogRecorder.h"
#include "Support/RecordingTaskRunner.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::vector<std::string>>;

class DitoTask : public testing::Test {
protected:
  // Leaves a copy as a ditto that works does.
  void dittoCopies() {
    runner.onRun = [this](const kwtest::RecordingTaskRunner::Run &) {
      folder.file("bin.ditto", "slim");
    };
  }
  bool slim() const {
    return kw::KWDitoTask::shared().slimBinaryAtPath(path, {"--arch", "x86_64"});
  }

  kwtest::ScratchFolder folder;
  kwtest::LogRecorder log;
  kwtest::RecordingTaskRunner runner;
  NS::ScopedOverride<kw::KWTaskRunner> override{runner};
  std::string path = folder.path("bin");
};

TEST_F(DitoTask, replacesTheBinaryByDittosCopy) {
  folder.file("bin", "fat");
  dittoCopies();
  EXPECT_TRUE(slim());
  EXPECT_EQ(runner.commandLines(),
            (Lines{{"/usr/bin/ditto", "--arch", "x86_64", path, path + ".ditto"}}));
  EXPECT_EQ(folder.content("bin"), "slim");
  EXPECT_FALSE(std::filesystem::exists(path + ".ditto"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(DitoTask, passesOptionsAsTheyAreAndMayHaveNone) {
  folder.file("bin", "fat");
  kw::KWDitoTask::shared().slimBinaryAtPath(path, {"--arch i386", "", "--arch", "--arch"});
  folder.file("bin", "fat");
  kw::KWDitoTask::shared().slimBinaryAtPath(path, {});
  EXPECT_EQ(runner.commandLines(),
            (Lines{{"/usr/bin/ditto", "--arch i386", "", "--arch", "--arch", path, path + ".ditto"},
                   {"/usr/bin/ditto", path, path + ".ditto"}}));
}

TEST_F(DitoTask, succeedsWithoutRunningATaskForAMissingBinary) {
  EXPECT_TRUE(slim());
  EXPECT_TRUE(runner.runs().empty());
}

TEST_F(DitoTask, leavesEverythingWhereDittoFails) {
  folder.file("bin", "fat");
  dittoCopies();
  runner.statuses["/usr/bin/ditto"] = 1;
  EXPECT_FALSE(slim());
  EXPECT_EQ(folder.content("bin"), "fat");
  EXPECT_EQ(folder.content("bin.ditto"), "slim") << "a copy that it left stays";
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(DitoTask, logsACopyThatCannotTakeThePlace) {
  struct Unmoving : kwtest::ForwardingFileManager {
    bool moveItemAtPath(const std::string &srcPath, const std::string &,
                        NS::ErrorSlot error) override {
      NS::storeError(error, NS::fileError(EPERM, srcPath, NS::FileAccess::Writing));
      return false;
    }
  } manager;
  NS::ScopedOverride<NS::FileManager> overrideManager(manager);
  folder.file("bin", "fat");
  dittoCopies();
  EXPECT_FALSE(slim());
  EXPECT_FALSE(std::filesystem::exists(path)) << "removed to make room";
  EXPECT_EQ(folder.content("bin.ditto"), "slim");
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ(log.lines().back(),
            "Can't copy with error " +
                NS::fileError(EPERM, path + ".ditto", NS::FileAccess::Writing).description());
}

TEST_F(DitoTask, withoutACopyFailsAndLogs) {
  folder.file("bin", "fat");
  EXPECT_FALSE(slim()) << "ditto claimed success and copied nothing";
  EXPECT_EQ(folder.content("bin"), "fat") << "no room is made for nothing";
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ(log.lines().back().find("Can't copy with error Error Domain=NSCocoaErrorDomain"), 0U);
}

} // namespace
