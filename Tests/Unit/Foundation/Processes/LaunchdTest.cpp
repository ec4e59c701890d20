// The job query by the tool, with scripts in its place.
#include "Foundation/Processes/Launchd.h"

#include "Foundation/Base/SharedInstance.h"
#include "Support/ScratchFolder.h"
#include "Support/StandardStreamInFile.h"
#include "Support/SubstitutedTasks.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>
#include <vector>

namespace {

using NS::LaunchDataType;

class Launchd : public ::testing::Test {
protected:
  // The kind of the reply when the tool is a script of these lines.
  LaunchDataType reply(const std::string &lines, std::int64_t timeout = 3600) {
    return replyOf(scratch.script("launchctl", lines), "org.example.job", timeout);
  }
  LaunchDataType replyOf(const std::string &program, const std::string &label,
                         std::int64_t timeout = 3600,
                         const std::string &key = NS::Launchd::GetJobKey) {
    kwtest::SubstitutedTasks tasks(program);
    NS::ScopedOverride<NS::TaskFactory> override(tasks);
    LaunchDataType type = NS::Launchd::shared().replyToRequest(key, label, timeout);
    asked = tasks.commandLines();
    return type;
  }

  kwtest::ScratchFolder scratch;
  std::vector<std::vector<std::string>> asked;
};

TEST_F(Launchd, answersWithADictionaryForAJobThatTheToolPrints) {
  EXPECT_EQ(reply("echo '{'; echo '};'"), LaunchDataType::Dictionary);
  EXPECT_EQ(reply("printf '\\n \\t{}'"), LaunchDataType::Dictionary);
  EXPECT_EQ(reply("echo '<plist version=\"1.0\"><dict/></plist>'"), LaunchDataType::Dictionary);
  using Line = std::vector<std::string>;
  EXPECT_EQ(asked, std::vector<Line>{(Line{"/bin/launchctl", "list", "org.example.job"})});
}

TEST_F(Launchd, answersWithAnErrorForAnythingElseThatTheToolPrints) {
  EXPECT_EQ(reply("exit 113"), LaunchDataType::Errno);
  EXPECT_EQ(reply("printf '\\n \\t'"), LaunchDataType::Errno);
  EXPECT_EQ(reply("echo 'Could not find service'"), LaunchDataType::Errno);
  EXPECT_EQ(reply("echo '<plist version=\"1.0\"><array/></plist>'"), LaunchDataType::Errno);
}

TEST_F(Launchd, isNotAskedForAnythingButALabel) {
  std::string tool = scratch.script("launchctl", "echo '{}'");
  EXPECT_EQ(replyOf(tool, "org.example.job", 3600, "GetJobs"), LaunchDataType::Errno);
  EXPECT_TRUE(asked.empty());
  EXPECT_EQ(replyOf(tool, std::string("org.example.job\0x", 17)), LaunchDataType::Errno);
  EXPECT_TRUE(asked.empty());
}

TEST_F(Launchd, doesNotAnswerWithoutTheTool) {
  EXPECT_EQ(replyOf(scratch.path("missing"), "org.example.job"), LaunchDataType::None);
}

TEST_F(Launchd, doesNotAnswerWhenTheToolDoesNotEnd) {
  EXPECT_EQ(reply("exec sleep 1000", 0), LaunchDataType::None);
  EXPECT_EQ(reply("echo '{'; head -c 1100000 /dev/zero"), LaunchDataType::None);
}

TEST_F(Launchd, givesTheToolNoStreamOfThisProcess) {
  std::string file = scratch.file("file", "");
  kwtest::StandardStreamInFile input(STDIN_FILENO, file), errors(STDERR_FILENO, file);
  EXPECT_EQ(reply("for stream in 0 2; do [ /proc/$$/fd/$stream -ef /dev/null ] || exit; done\n"
                  "echo '{}'"),
            LaunchDataType::Dictionary);
}

} // namespace
