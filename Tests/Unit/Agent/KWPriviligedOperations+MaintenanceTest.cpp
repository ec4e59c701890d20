// The handlers of system maintenance, with every tool, job and log recorded.
#include "Agent/KWPriviligedOperations.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Base/SystemLog.h"
#include "Foundation/Desktop/AppKitVersion.h"
#include "Protocol/Identity.h"
#include "Support/FakeXPCConnection.h"
#include "Support/ForwardingFileManager.h"
#include "Support/LogRecorder.h"
#include "Support/RecordingTaskRunner.h"
#include "Support/ScratchFolder.h"
#include "Support/SubstitutedTasks.h"
#include "Tools/KWLaunchdManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

namespace {

using Lines = std::vector<std::vector<std::string>>;
using testing::ElementsAre;

// Everything that happens, in its order, by whichever fake it reaches.
using Events = std::vector<std::string>;

class FakeJobs final : public kw::KWLaunchdManager {
public:
  explicit FakeJobs(Events &events) : events_(events) {}
  bool stopAgentWithLabel(const std::optional<std::string> &label) const override {
    return tell("stop " + label.value_or("nil"));
  }
  bool startAgentWithLabel(const std::optional<std::string> &label) const override {
    return tell("start " + label.value_or("nil"));
  }
  std::set<std::string> failing;

private:
  bool tell(const std::string &event) const {
    events_.push_back(event);
    return !failing.contains(event);
  }
  Events &events_;
};

class FakeSystemLog final : public NS::SystemLog {
public:
  explicit FakeSystemLog(Events &events) : events_(events) {}
  void syslog(NS::SystemLogPriority priority, const std::string &message) override {
    events_.push_back("syslog " + std::to_string(static_cast<int>(priority)) + " " + message);
  }

private:
  Events &events_;
};

// A log store with one file, which may refuse to go.
class FakeLogStore final : public kwtest::ForwardingFileManager {
public:
  explicit FakeLogStore(Events &events) : events_(events) {}
  std::optional<std::vector<NS::URL>> contentsOfDirectoryAtURL(const NS::URL &url,
                                                               NS::DirectoryEnumerationOptions,
                                                               NS::ErrorSlot error) override {
    events_.push_back("empty " + url.path());
    if (readable)
      return std::vector<NS::URL>{};
    NS::storeError(error, NS::fileError(ENOENT, url.path(), NS::FileAccess::Reading));
    return std::nullopt;
  }
  bool isExecutableFileAtPath(const std::string &path) override {
    return path != missing && ForwardingFileManager::isExecutableFileAtPath(path);
  }
  bool readable = true;
  std::string missing; // the path of a program that does not exist

private:
  Events &events_;
};

struct FakeVersion final : NS::AppKitVersion {
  double number() const override { return value; }
  double value = 2299.0;
};

class Maintenance : public testing::Test {
protected:
  kw::KWFlagReply reply() {
    return [this](bool success, const std::optional<NS::Error> &error) {
      EXPECT_FALSE(error);
      events.push_back(success ? "reply YES" : "reply NO");
    };
  }
  // The events of an erasure of the log store in which the named events fail.
  Events erase(const std::set<std::string> &failing) {
    events.clear();
    jobs.failing = failing;
    operations.removeASLWithReply(reply());
    return events;
  }
  Lines flushWithVersion(double number) {
    kwtest::RecordingTaskRunner own;
    NS::ScopedOverride<kw::KWTaskRunner> ownOverride(own);
    version.value = number;
    operations.flushDNSWithReply(reply());
    return own.commandLines();
  }

  Events events;
  FakeJobs jobs{events};
  FakeSystemLog systemLog{events};
  FakeLogStore store{events};
  FakeVersion version;
  kwtest::RecordingTaskRunner runner;
  kwtest::LogRecorder log;
  NS::ScopedOverride<kw::KWLaunchdManager> jobsOverride{jobs};
  NS::ScopedOverride<NS::SystemLog> systemLogOverride{systemLog};
  NS::ScopedOverride<NS::FileManager> storeOverride{store};
  NS::ScopedOverride<NS::AppKitVersion> versionOverride{version};
  NS::ScopedOverride<kw::KWTaskRunner> runnerOverride{runner};
  kw::KWPriviligedOperations operations;
};

constexpr const char *stopSyslogd = "stop com.apple.syslogd";
constexpr const char *stopAslmanager = "stop com.apple.aslmanager";
constexpr const char *emptyStore = "empty /var/log/asl";
constexpr const char *startSyslogd = "start com.apple.syslogd";
constexpr const char *startAslmanager = "start com.apple.aslmanager";

TEST_F(Maintenance, erasesTheLogStoreBetweenStopAndStart) {
  EXPECT_THAT(erase({}), ElementsAre(stopSyslogd, stopAslmanager, emptyStore, startSyslogd,
                                     startAslmanager, "reply YES"));
}

TEST_F(Maintenance, erasesNothingWhenSyslogdCannotBeStopped) {
  EXPECT_THAT(erase({stopSyslogd}),
              ElementsAre(stopSyslogd, "syslog 3 Failed to stop com.apple.syslogd", "reply NO"));
}

TEST_F(Maintenance, leavesSyslogdStoppedWhenAslmanagerCannotBe) {
  EXPECT_THAT(erase({stopAslmanager}),
              ElementsAre(stopSyslogd, stopAslmanager,
                          "syslog 3 Failed to stop com.apple.aslmanager", "reply NO"));
}

TEST_F(Maintenance, succeedsThoughTheStoreCannotBeEmptied) {
  store.readable = false;
  EXPECT_THAT(erase({}), ElementsAre(stopSyslogd, stopAslmanager, emptyStore,
                                     "syslog 3 Failed to remove contents of /var/log/asl",
                                     startSyslogd, startAslmanager, "reply YES"));
}

TEST_F(Maintenance, triesBothStartsAndBlamesAslmanagerForEither) {
  EXPECT_THAT(erase({startSyslogd}),
              ElementsAre(stopSyslogd, stopAslmanager, emptyStore, startSyslogd,
                          "syslog 3 Failed to start com.apple.syslogd", startAslmanager,
                          "syslog 3 Failed to start com.apple.aslmanager", "reply NO"));
  EXPECT_THAT(erase({startAslmanager}),
              ElementsAre(stopSyslogd, stopAslmanager, emptyStore, startSyslogd, startAslmanager,
                          "syslog 3 Failed to start com.apple.aslmanager", "reply NO"));
  EXPECT_THAT(erase({startSyslogd, startAslmanager}),
              ElementsAre(stopSyslogd, stopAslmanager, emptyStore, startSyslogd,
                          "syslog 3 Failed to start com.apple.syslogd", startAslmanager,
                          "syslog 3 Failed to start com.apple.aslmanager", "reply NO"));
}

TEST_F(Maintenance, flushesTheNamesByTheSystemsVersion) {
  Lines discovery = {{"/usr/sbin/discoveryutil", "mdnsflushcache"},
                     {"/usr/sbin/discoveryutil", "udnsflushcaches"}};
  Lines cache = {{"/usr/sbin/dscacheutil", "-flushcache"},
                 {"/usr/bin/killall", "-HUP", "mDNSResponder"}};
  for (double number : {1343.0, 1343.9, 1347.0, 1347.9})
    EXPECT_EQ(flushWithVersion(number), discovery) << number;
  for (double number : {1342.9, 1348.0, 0.0, 949.0, 2299.0})
    EXPECT_EQ(flushWithVersion(number), cache) << number;
  EXPECT_EQ(events, Events(9, "reply YES"));
}

TEST_F(Maintenance, flushesWithBothToolsAndFailsWithEither) {
  for (const char *tool : {"/usr/sbin/dscacheutil", "/usr/bin/killall"}) {
    runner.statuses = {{tool, 1}};
    operations.flushDNSWithReply(reply());
  }
  EXPECT_THAT(events, ElementsAre("reply NO", "reply NO"));
  EXPECT_EQ(runner.runs().size(), 4U) << "the second tool ran each time";
}

TEST_F(Maintenance, adoptsTheStatusOfEveryBit) {
  runner.statuses = {{"/usr/sbin/dscacheutil", 1}, {"/usr/bin/killall", 2}};
  operations.flushDNSWithReply(reply());
  runner.statuses = {{"/usr/sbin/dscacheutil", -1}, {"/usr/bin/killall", 0}};
  operations.flushDNSWithReply(reply());
  EXPECT_THAT(events, ElementsAre("reply NO", "reply NO"));
}

TEST_F(Maintenance, passesTheScriptsNameAsItCameAndNeverFails) {
  for (const char *name : {"daily", "", "; rm -rf /", "--help", "a b"}) {
    runner.statuses["/usr/sbin/periodic"] = 1;
    operations.runPeriodicScript(name, reply());
  }
  EXPECT_EQ(runner.commandLines(), (Lines{{"/usr/sbin/periodic", "daily"},
                                          {"/usr/sbin/periodic", ""},
                                          {"/usr/sbin/periodic", "; rm -rf /"},
                                          {"/usr/sbin/periodic", "--help"},
                                          {"/usr/sbin/periodic", "a b"}}));
  EXPECT_FALSE(runner.runs()[0].suppressErrorOutput);
  EXPECT_EQ(events, Events(5, "reply YES"));
}

TEST_F(Maintenance, reindexesTheWholeVolumeAndNeverFails) {
  runner.statuses["/usr/bin/mdutil"] = 1;
  operations.startSpotlightReindexWithReply(reply());
  EXPECT_EQ(runner.commandLines(), (Lines{{"/usr/bin/mdutil", "-E", "/"}}));
  EXPECT_THAT(events, ElementsAre("reply YES"));
}

TEST_F(Maintenance, skipsAReplyThatIsNil) {
  operations.removeASLWithReply(nullptr);
  operations.flushDNSWithReply(nullptr);
  operations.runPeriodicScript("daily", nullptr);
  operations.startSpotlightReindexWithReply(nullptr);
  operations.removeDiagnosticLogsWithReply(nullptr);
  EXPECT_EQ(runner.runs().size(), 5U) << "the work was done";
}

// --- The unified log

struct LogReply {
  std::optional<std::string> output;
  std::int64_t status;
  std::optional<std::string> errorOutput;
  std::optional<NS::Error> error;
};

class UnifiedLog : public Maintenance {
protected:
  kw::KWDiagnosticLogsReply reply() {
    return [this](const std::optional<std::string> &output, std::int64_t status,
                  const std::optional<std::string> &errorOutput,
                  const std::optional<NS::Error> &error) {
      replies.push_back({output, status, errorOutput, error});
    };
  }
  std::vector<LogReply> replies;
};

TEST_F(UnifiedLog, isErasedWithTheConsentOnStandardInput) {
  operations.removeDiagnosticLogsWithReply(reply());
  EXPECT_EQ(runner.commandLines(), (Lines{{"/usr/bin/log", "erase", "--all"}}));
  EXPECT_EQ(runner.runs()[0].standardInput, "y");
  EXPECT_EQ(replies.size(), 1U);
}

TEST_F(UnifiedLog, passesTheRunnersAnswerThrough) {
  NS::Error error(kw::kTaskRunnerErrorDomain, 0);
  runner.onCompletion = [&](const kw::KWTaskRunner::CompletionHandler &completion) {
    completion("done\n", 9, "odd\n", error);
  };
  operations.removeDiagnosticLogsWithReply(reply());
  ASSERT_EQ(replies.size(), 1U);
  EXPECT_EQ(replies[0].output, "done\n");
  EXPECT_EQ(replies[0].status, 9);
  EXPECT_EQ(replies[0].errorOutput, "odd\n");
  EXPECT_EQ(replies[0].error->domain(), kw::kTaskRunnerErrorDomain);
}

TEST_F(UnifiedLog, repliesTwiceWithoutItsTool) {
  // Whether or not this host has one.
  store.missing = "/usr/bin/log";
  kwtest::SubstitutedTasks nothing("/usr/bin/log/that/is/not/there");
  NS::ScopedOverride<NS::TaskFactory> tasksOverride(nothing);
  kw::KWTaskRunner real;
  NS::ScopedOverride<kw::KWTaskRunner> realOverride(real);
  operations.removeDiagnosticLogsWithReply(reply());
  EXPECT_EQ(nothing.commandLines(), (Lines{{"/usr/bin/log", "erase", "--all"}}));
  ASSERT_EQ(replies.size(), 2U);
  for (const LogReply &each : replies) {
    EXPECT_EQ(each.output, std::nullopt);
    EXPECT_EQ(each.status, -1);
    EXPECT_EQ(each.errorOutput, std::nullopt);
    ASSERT_TRUE(each.error);
    EXPECT_EQ(each.error->domain(), kw::kTaskRunnerErrorDomain);
    EXPECT_EQ(each.error->code(), 0);
  }
}

// --- The repair

struct RepairAnswer {
  bool success;
  std::int32_t value;
  std::optional<std::string> text;
  std::size_t chunksBefore; // sent to the client when the reply came
};

class Repair : public Maintenance {
protected:
  void repair(const std::string &lines) {
    kwtest::SubstitutedTasks tasks(folder.script("repair", lines));
    NS::ScopedOverride<NS::TaskFactory> tasksOverride(tasks);
    operations.setXPCConnection(connection);
    operations.repairPermissionsWithReply(
        [this](bool success, std::int32_t value, const std::optional<std::string> &text) {
          answers.push_back({success, value, text, connection ? connection->sent.size() : 0});
        });
    EXPECT_EQ(tasks.commandLines().size(), 1U);
  }

  kwtest::ScratchFolder folder;
  std::shared_ptr<kwtest::FakeXPCConnection> connection =
      std::make_shared<kwtest::FakeXPCConnection>();
  std::vector<RepairAnswer> answers;
};

TEST_F(Repair, repliesWithTheProcessOfTheToolEvenWhenItFailed) {
  repair("echo $$ > ${0%/*}/pid; exit 1");
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_TRUE(answers[0].success);
  EXPECT_EQ(std::to_string(answers[0].value) + "\n", folder.content("pid"));
  EXPECT_EQ(answers[0].text, std::nullopt);
}

TEST_F(Repair, sendsEveryChunkToTheClientBeforeTheReply) {
  repair("head -c 3000000 /dev/zero | tr '\\0' x");
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_GE(connection->sent.size(), 1U);
  EXPECT_EQ(answers[0].chunksBefore, connection->sent.size());
  for (const auto &[selector, arguments] : connection->sent) {
    EXPECT_EQ(selector, "receiveNewOutput:");
    ASSERT_EQ(arguments.size(), 1U);
    EXPECT_EQ(std::get<std::string>(arguments[0]).find_first_not_of('x'), std::string::npos);
  }
}

TEST_F(Repair, repliesThoughTheClientIsGone) {
  connection.reset();
  repair("head -c 3000000 /dev/zero | tr '\\0' x");
  EXPECT_EQ(answers.size(), 1U);
  EXPECT_TRUE(log.lines().empty()) << "what cannot be sent is lost without a word";
}

TEST_F(Repair, withoutItsToolRaisesInsteadOfClaimingSuccess) {
  kwtest::SubstitutedTasks tasks("/missing/tool");
  NS::ScopedOverride<NS::TaskFactory> tasksOverride(tasks);
  EXPECT_THROW(operations.repairPermissionsWithReply([](bool, auto, auto &&) { FAIL(); }),
               NS::Exception);
}

TEST_F(Repair, needsAReply) {
  kwtest::SubstitutedTasks tasks(folder.script("repair", "exit 0"));
  NS::ScopedOverride<NS::TaskFactory> tasksOverride(tasks);
  EXPECT_THROW(operations.repairPermissionsWithReply(nullptr), std::bad_function_call);
}

} // namespace
