// The commands for services: which request each makes, and how it is told.
#include "CommandLine/CommandLine.h"

#include "Support/FakeLaunchd.h"
#include "Support/ScratchFolder.h"

#include "Foundation/SharedInstance.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using kw::ClientError;
using kw::FlagReply;
using Strings = std::vector<std::string>;

struct Record {
  Strings requests;
  bool success = true;
  // Thrown by all but the echo.
  std::optional<ClientError> failure;
};

class RecordingClient final : public kw::Client {
public:
  explicit RecordingClient(Record &record) : record_(record) {}

  kw::EchoReply echo(const std::string &text) override {
    record_.requests.push_back("echo");
    return {text, std::nullopt};
  }
  FlagReply removePackageWithID(const std::string &id) override { return note("package " + id); }
  FlagReply removeKextAtPath(const std::string &path) override { return note("kext " + path); }
  FlagReply slimBinaryWithPath(const std::string &path, const Strings &archs) override {
    std::string request = "slim " + path;
    for (const std::string &each : archs)
      request += "|" + each;
    return note(request);
  }
  FlagReply removeLaunchdAgentAtPath(const std::string &path) override {
    return note("remove " + path);
  }
  FlagReply enableLaunchdAgentAtPath(const std::string &path) override {
    return note("enable " + path);
  }
  FlagReply disableLaunchdAgentAtPath(const std::string &path) override {
    return note("disable " + path);
  }
  FlagReply removeSMLoginItem(const std::string &id) override { return note("sm " + id); }
  FlagReply removeGlobalLoginItemForAppWithPath(const std::string &path) override {
    return note("global " + path);
  }
  FlagReply startStartupItem(const std::string &name) override { return note("start " + name); }
  FlagReply stopStartupItem(const std::string &name) override { return note("stop " + name); }
  FlagReply removeLibraryFromLauchdConf(const std::string &path) override {
    return note("library " + path);
  }

  void pleaseTerminate() override { note("unexpected"); }
  FlagReply fileExistsAtPath(const std::string &) override { return note("unexpected"); }
  FlagReply moveItemAtPath(const std::string &, const std::string &) override {
    return note("unexpected");
  }
  FlagReply removeItemAtPath(const std::string &) override { return note("unexpected"); }
  FlagReply securelyRemoveItemAtPath(const std::string &) override { return note("unexpected"); }
  FlagReply moveToTrashItemAtPath(const std::string &) override { return note("unexpected"); }
  FlagReply truncateFileAtPath(const std::string &) override { return note("unexpected"); }
  kw::SizeReply sizeOfItemAtPath(const std::string &) override { return {}; }
  FlagReply removeASL() override { return note("unexpected"); }
  kw::RepairReply repairPermissions(const Progress &) override { return {}; }
  FlagReply runPeriodicScript(const std::string &) override { return note("unexpected"); }
  FlagReply startSpotlightReindex() override { return note("unexpected"); }
  FlagReply flushDNS() override { return note("unexpected"); }
  kw::DiagnosticLogsReply removeDiagnosticLogs() override { return {}; }

private:
  FlagReply note(const std::string &request) {
    record_.requests.push_back(request);
    if (record_.failure)
      throw *record_.failure;
    return {record_.success, std::nullopt};
  }
  Record &record_;
};

class ServiceCommands : public testing::Test {
protected:
  int run(const Strings &words) {
    std::vector<const char *> arguments{"keepwell"};
    for (const std::string &word : words)
      arguments.push_back(word.c_str());
    record.requests.clear();
    out.str("");
    err.str("");
    kw::Surroundings surroundings{&out, &err, [this](const std::string &) {
                                    return std::make_unique<RecordingClient>(record);
                                  }};
    return kw::runCommandLine(static_cast<int>(arguments.size()), arguments.data(), surroundings);
  }

  Record record;
  std::ostringstream out, err;
};

TEST_F(ServiceCommands, eachMakesItsOneRequest) {
  struct Row {
    Strings words;
    std::string request;
  };
  for (const Row &row :
       {Row{{"launchd", "enable", "/j"}, "enable /j"},
        Row{{"launchd", "disable", "/j"}, "disable /j"},
        Row{{"launchd", "remove", "/j"}, "remove /j"},
        Row{{"startup", "start", "A b"}, "start A b"}, Row{{"startup", "stop", "x"}, "stop x"},
        Row{{"login-item", "remove-global", "/A.app"}, "global /A.app"},
        Row{{"login-item", "remove-sm", "org.x"}, "sm org.x"},
        Row{{"kext", "remove", "/k.kext"}, "kext /k.kext"},
        Row{{"package", "forget", "org.p"}, "package org.p"},
        Row{{"launchd-conf", "remove-library", "lib x"}, "library lib x"},
        Row{{"slim", "/b", "--arch", "x86_64", "--arch", "arm64"},
            "slim /b|--arch|x86_64|--arch|arm64"}}) {
    EXPECT_EQ(run(row.words), kw::ExitDone);
    EXPECT_EQ(record.requests, Strings{row.request});
    EXPECT_NE(out.str(), "") << row.request;
    EXPECT_EQ(err.str(), "") << row.request;
    record.success = false;
    EXPECT_EQ(run(row.words), kw::ExitRefused);
    EXPECT_EQ(out.str(), "") << row.request;
    EXPECT_NE(err.str(), "") << row.request;
    record.success = true;
  }
}

TEST_F(ServiceCommands, tellProgramsInJSON) {
  run({"--json", "launchd", "enable", "/j"});
  EXPECT_EQ(out.str(), "{\"command\":\"launchd enable\",\"path\":\"/j\",\"success\":true}\n");
  record.success = false;
  run({"--json", "login-item", "remove-sm", "x"});
  EXPECT_EQ(out.str(),
            "{\"command\":\"login-item remove-sm\",\"identifier\":\"x\",\"success\":false}\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(ServiceCommands, makeRelativePathsAbsoluteAndLeaveNamesAlone) {
  run({"launchd", "enable", "j"});
  EXPECT_EQ(record.requests, Strings{"enable " + kw::absolutePath("j")});
  run({"startup", "start", "j"});
  EXPECT_EQ(record.requests, Strings{"start j"});
}

TEST_F(ServiceCommands, asTheyStandAreIncompleteWithoutAVerbOrAnArgument) {
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

TEST_F(ServiceCommands, withoutAnAgentSaySo) {
  record.failure = ClientError(ClientError::Kind::Unreachable, "org.example.Error", "nobody there");
  EXPECT_EQ(run({"startup", "start", "x"}), kw::ExitUnreachable);
  EXPECT_NE(err.str().find("nobody there"), std::string::npos);
}

TEST_F(ServiceCommands, takeTheEndOfTheAgentForTheRemovalOfItsOwnJob) {
  const std::string own = "/Library/LaunchDaemons/org.keepwell.pro.agent.plist";
  record.failure = ClientError(ClientError::Kind::Unreachable, "org.example.Error", "ended");
  EXPECT_EQ(run({"launchd", "remove", own}), kw::ExitDone);
  EXPECT_EQ(record.requests, (Strings{"echo", "remove " + own}));
  EXPECT_EQ(run({"launchd", "remove", "/other"}), kw::ExitUnreachable);
  record.failure = ClientError(ClientError::Kind::Refused, "org.example.Error", "no");
  EXPECT_EQ(run({"launchd", "remove", own}), kw::ExitRefused);
}

TEST_F(ServiceCommands, tellWhatAJobsListSaysWithoutTheAgent) {
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
  EXPECT_EQ(run({"launchd", "info", scratch.path("missing")}), kw::ExitRefused);
  EXPECT_NE(err.str(), "");
  EXPECT_TRUE(record.requests.empty());
}

} // namespace
