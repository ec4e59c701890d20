// The commands for services: which request each makes, and how it is told.
#include "CommandLine/CommandLine.h"

#include "Support/CommandRun.h"
#include "Support/FakeAgent.h"
#include "Support/FakeLaunchd.h"
#include "Support/ScopedVariable.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/SharedInstance.h"

#include <gtest/gtest.h>

namespace {

using kw::ClientError;
using kwtest::FakeAgent;
using Strings = std::vector<std::string>;

struct Record {
  Strings requests;
  bool success = true;
  bool agentEnds = false; // where it may
  std::optional<ClientError> failure;
};

FakeAgent::Answer answer(const Record &record, const kw::AgentMessage &message) {
  if (record.failure)
    return *record.failure;
  if (record.agentEnds && message.mayEndAgent)
    return NS::XPCValues{};
  return NS::XPCValues{record.success, std::monostate()};
}

class ServiceCommands : public testing::Test {
protected:
  int run(const Strings &words) {
    FakeAgent agent([this](const kw::AgentMessage &message) { return answer(record, message); });
    kw::Surroundings surroundings;
    surroundings.connect = [&](const std::string &, const kw::ClientOptions &) {
      return agent.client();
    };
    surroundings.ask = ask;
    int status = keepwell(words, std::move(surroundings));
    record.requests = agent.requests();
    return status;
  }

  Record record;
  std::function<std::optional<std::string>(const std::string &question)> ask;
  kwtest::CommandRun keepwell;
  std::ostringstream &out = keepwell.out;
  std::ostringstream &err = keepwell.err;
};

TEST_F(ServiceCommands, eachMakesItsOneRequestAndTellsItsOutcome) {
  struct Row {
    Strings words;
    std::string request, done, failed;
  };
  for (const Row &row : {Row{{"launchd", "enable", "/j"},
                             "EnableLaunchdAgentAtPath /j",
                             "Enabled /j",
                             "/j could not be enabled"},
                         Row{{"launchd", "disable", "/j"},
                             "DisableLaunchdAgentAtPath /j",
                             "Disabled /j",
                             "/j could not be disabled"},
                         Row{{"launchd", "remove", "/j"},
                             "RemoveLaunchdAgentAtPath /j",
                             "Removed /j",
                             "/j could not be removed"},
                         Row{{"startup", "start", "A b"},
                             "StartStartupItem A b",
                             "Asked to start A b",
                             "A b could not be started"},
                         Row{{"startup", "stop", "x"},
                             "StopStartupItem x",
                             "Asked to stop x",
                             "x could not be stopped"},
                         Row{{"login-item", "remove-global", "/A.app"},
                             "RemoveGlobalLoginItemForAppWithPath /A.app",
                             "No login item of all users starts /A.app",
                             "/A.app could not be removed from the login items of all users"},
                         Row{{"login-item", "remove-sm", "org.x"},
                             "RemoveSMLoginItem org.x",
                             "No login item is registered as org.x",
                             "org.x could not be removed from the login items"},
                         Row{{"kext", "remove", "/k.kext"},
                             "RemoveKextAtPath /k.kext",
                             "Removed /k.kext",
                             "/k.kext could not be removed"},
                         Row{{"package", "forget", "org.p"},
                             "RemovePackageWithID org.p",
                             "Forgot org.p",
                             "org.p could not be forgotten"},
                         Row{{"launchd-conf", "remove-library", "lib x"},
                             "RemoveLibraryFromLauchdConf lib x",
                             "No longer inserted into programs: lib x",
                             "lib x could not be taken out of launchd's configuration"},
                         Row{{"slim", "/b", "--arch", "x86_64", "--arch", "arm64"},
                             "SlimBinaryWithPath /b|--arch|x86_64|--arch|arm64",
                             "Slimmed /b",
                             "/b could not be slimmed"}}) {
    EXPECT_EQ(run(row.words), kw::ExitDone);
    EXPECT_EQ(record.requests, Strings{row.request});
    EXPECT_EQ(out.str(), row.done + "\n");
    EXPECT_EQ(err.str(), "") << row.request;
    record.success = false;
    EXPECT_EQ(run(row.words), kw::ExitRefused);
    EXPECT_EQ(out.str(), "") << row.request;
    EXPECT_EQ(err.str(), "keepwell: " + row.failed + "\n");
    record.success = true;
  }
}

TEST_F(ServiceCommands, tryTheRemovalOfAnExtension) {
  kwtest::ScratchFolder scratch;
  scratch.file("Example.kext", "text");
  std::string path = scratch.path("Example.kext");
  EXPECT_EQ(run({"kext", "remove", "-n", path}), kw::ExitDone);
  EXPECT_EQ(out.str(), "Would remove " + path + "\n1 item, 4 KB on disk, 4 KB would be freed\n");
  EXPECT_EQ(run({"--json", "kext", "remove", "-n", path}), kw::ExitDone);
  EXPECT_TRUE(out.str().starts_with("{\"command\":\"kext remove\",\"path\":\"" + path +
                                    "\",\"dryRun\":true,\"success\":true,"))
      << out.str();
  EXPECT_TRUE(record.requests.empty());
}

TEST_F(ServiceCommands, tryWorkThatCannotBeUndone) {
  kwtest::ScratchFolder scratch;
  std::string job = scratch.file("job.plist", "text"), binary = scratch.file("run", "text");
  for (const auto &[words, sentence] :
       {std::pair{Strings{"launchd", "remove", "-n", job}, "Would remove the job " + job},
        std::pair{Strings{"package", "forget", "-n", "org.p"}, std::string("Would forget org.p")},
        std::pair{Strings{"slim", "-n", binary, "--arch", "arm64"}, "Would strip " + binary},
        std::pair{Strings{"maintenance", "erase-asl", "-n"},
                  std::string("Would erase the system log store")},
        std::pair{Strings{"maintenance", "erase-unified-log", "-n"},
                  std::string("Would erase the unified log")}}) {
    EXPECT_EQ(run(words), kw::ExitDone);
    EXPECT_EQ(out.str(), sentence + "\n");
    EXPECT_EQ(err.str(), "");
  }
  std::string missing = scratch.path("missing");
  EXPECT_EQ(run({"launchd", "remove", "-n", missing}), kw::ExitRefused);
  EXPECT_EQ(err.str(),
            "keepwell: " + missing + " could not be removed: No such file or directory\n");
  run({"--json", "package", "forget", "-n", "org.p"});
  EXPECT_EQ(out.str(), "{\"command\":\"package forget\",\"identifier\":\"org.p\","
                       "\"dryRun\":true,\"success\":true}\n");
  EXPECT_TRUE(record.requests.empty());
}

// Removing it asks for no path to be typed either.
TEST_F(ServiceCommands, tryTheRemovalOfAnExtensionThatIsAProtectedFolder) {
  kwtest::ScratchFolder scratch;
  kwtest::ScopedVariable home("HOME", scratch.path());
  EXPECT_EQ(run({"kext", "remove", "-n", scratch.path()}), kw::ExitDone);
  EXPECT_TRUE(out.str().starts_with("Would remove " + scratch.path() + "\n")) << out.str();
}

TEST_F(ServiceCommands, askBeforeWorkThatCannotBeUndone) {
  Strings questions;
  ask = [&](const std::string &question) {
    questions.push_back(question);
    return "n";
  };
  for (const auto &[words, question] :
       {std::pair{Strings{"launchd", "remove", "/j"}, "Remove the job /j for good? [y/N] "},
        std::pair{Strings{"kext", "remove", "/k"}, "Remove /k for good? [y/N] "},
        std::pair{Strings{"package", "forget", "org.p"}, "Forget org.p for good? [y/N] "},
        std::pair{Strings{"slim", "/b"}, "Strip /b for good? [y/N] "}}) {
    questions.clear();
    EXPECT_EQ(run(words), kw::ExitRefused);
    EXPECT_EQ(questions, Strings{question});
    EXPECT_EQ(err.str(), "keepwell: not confirmed; nothing was done\n");
    EXPECT_TRUE(record.requests.empty());
    Strings confirmed = words;
    confirmed.insert(confirmed.begin() + 1, "--yes");
    if (words.front() != "slim") // whose options come before its path
      std::swap(confirmed[1], confirmed[2]);
    EXPECT_EQ(run(confirmed), kw::ExitDone) << err.str();
    EXPECT_EQ(record.requests.size(), 1u);
  }
  questions.clear();
  EXPECT_EQ(run({"launchd", "disable", "/j"}), kw::ExitDone);
  EXPECT_TRUE(questions.empty()) << "it can be enabled again";
}

TEST_F(ServiceCommands, tellProgramsInJSON) {
  run({"--json", "slim", "/b"});
  EXPECT_EQ(out.str(), "{\"command\":\"slim\",\"path\":\"/b\",\"success\":true}\n");
  run({"--json", "launchd", "enable", "/j"});
  EXPECT_EQ(out.str(), "{\"command\":\"launchd enable\",\"path\":\"/j\",\"success\":true}\n");
  record.success = false;
  run({"--json", "login-item", "remove-sm", "x"});
  EXPECT_EQ(out.str(),
            "{\"command\":\"login-item remove-sm\",\"identifier\":\"x\",\"success\":false,"
            "\"error\":{\"kind\":\"failed\",\"description\":\"the agent gave no reason\"}}\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(ServiceCommands, makeRelativePathsAbsoluteAndLeaveNamesAlone) {
  run({"launchd", "enable", "j"});
  EXPECT_EQ(record.requests, Strings{"EnableLaunchdAgentAtPath " + kw::absolutePath("j")});
  run({"startup", "start", "j"});
  EXPECT_EQ(record.requests, Strings{"StartStartupItem j"});
}

TEST_F(ServiceCommands, areIncompleteWithoutAVerbOrAnArgument) {
  for (const Strings &words : {Strings{"launchd"},
                               {"launchd", "enable"},
                               {"launchd", "nonsense", "/j"},
                               {"startup", "start", ""},
                               {"login-item", "remove-global"},
                               {"slim"},
                               {"kext", "remove"}}) {
    EXPECT_EQ(run(words), kw::ExitUsage);
    EXPECT_TRUE(record.requests.empty());
  }
}

TEST_F(ServiceCommands, nameTheOptionsOfDittoInTheUsage) {
  EXPECT_EQ(run({"slim", "--help"}), kw::ExitDone);
  EXPECT_NE(out.str().find("Usage: keepwell slim [OPTIONS] PATH [DITTO-OPTION]...\n"),
            std::string::npos)
      << out.str();
}

TEST_F(ServiceCommands, withoutAnAgentSaySo) {
  record.failure = ClientError(ClientError::Kind::Unreachable, "org.example.Error", "nobody there");
  EXPECT_EQ(run({"startup", "start", "x"}), kw::ExitNoAnswer);
  EXPECT_NE(err.str().find("nobody there"), std::string::npos);
}

TEST_F(ServiceCommands, takeTheEndOfTheAgentForTheRemovalOfItsOwnJob) {
  std::string own = "/Library/LaunchDaemons/org.keepwell.pro.agent.plist";
  record.agentEnds = true;
  EXPECT_EQ(run({"launchd", "remove", own}), kw::ExitDone);
  EXPECT_EQ(record.requests, Strings{"RemoveLaunchdAgentAtPath " + own});
  record.failure = ClientError(ClientError::Kind::Interrupted, "org.example.Error", "ended");
  EXPECT_EQ(run({"launchd", "remove", "/other"}), kw::ExitNoAnswer);
  record.failure = ClientError(ClientError::Kind::Refused, "org.example.Error", "no");
  EXPECT_EQ(run({"launchd", "remove", own}), kw::ExitRefused);
}

TEST_F(ServiceCommands, tellTheContentsOfAJobsListWithoutTheAgent) {
  kwtest::ScratchFolder scratch;
  kwtest::FakeLaunchd launchd;
  NS::ScopedOverride<NS::Launchd> launchdOverride{launchd};
  launchd.jobs.insert("org.x");
  std::string path = scratch.file("j.plist", "<dict><key>Label</key><string>org.x</string>"
                                             "<key>RunAtLoad</key><true/><key>Program</key>"
                                             "<string>/A.app/x</string></dict>");
  EXPECT_EQ(run({"launchd", "info", path}), kw::ExitDone);
  EXPECT_EQ(out.str(), "Label: org.x\nLoaded: yes\nRuns when loaded: yes\n"
                       "Runs by the calendar: no\nApplication: /A.app (not certain)\n");
  EXPECT_EQ(run({"launchd", "info", "--json", path}), kw::ExitDone);
  EXPECT_EQ(out.str(), "{\"command\":\"launchd info\",\"path\":\"" + path +
                           "\",\"success\":true,\"label\":\"org.x\",\"loaded\":true,"
                           "\"runAtLoad\":true,\"periodic\":false,\"application\":\"/A.app\","
                           "\"applicationIsCertain\":false}\n");
  EXPECT_TRUE(record.requests.empty());
}

TEST_F(ServiceCommands, tellWhyAFileCannotBeReadAsAJobsList) {
  kwtest::ScratchFolder scratch;
  std::string missing = scratch.path("missing"), other = scratch.file("other", "text");
  EXPECT_EQ(run({"launchd", "info", missing}), kw::ExitRefused);
  EXPECT_EQ(err.str(), "keepwell: " + missing + " could not be read: No such file or directory\n");
  EXPECT_EQ(run({"launchd", "info", other}), kw::ExitRefused);
  EXPECT_EQ(err.str(), "keepwell: " + other + " could not be read: it is not a job list\n");
  EXPECT_EQ(run({"--json", "launchd", "info", other}), kw::ExitRefused);
  EXPECT_EQ(out.str(), "{\"command\":\"launchd info\",\"path\":\"" + other +
                           "\",\"success\":false,\"error\":{\"kind\":\"failed\","
                           "\"description\":\"it is not a job list\"}}\n");
}

} // namespace
