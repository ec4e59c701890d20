// The commands of system maintenance: which request each makes, and how it is
// told.
#include "CommandLine/CommandLine.h"

#include "Foundation/Identity.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using kw::ClientError;
using kw::FlagReply;
using Strings = std::vector<std::string>;

struct Record {
  Strings requests;
  bool success = true;
  kw::DiagnosticLogsReply erasure;
  Strings chunks;
  std::optional<ClientError> failure;
};

class RecordingClient final : public kw::Client {
public:
  explicit RecordingClient(Record &record) : record_(record) {}

  FlagReply removeASL() override { return note("asl"); }
  FlagReply runPeriodicScript(const std::string &name) override { return note("periodic " + name); }
  FlagReply startSpotlightReindex() override { return note("reindex"); }
  FlagReply flushDNS() override { return note("dns"); }
  kw::DiagnosticLogsReply removeDiagnosticLogs() override {
    note("log");
    return record_.erasure;
  }
  kw::RepairReply repairPermissions(const Progress &progress) override {
    note("repair");
    for (const std::string &chunk : record_.chunks)
      progress(chunk);
    return {record_.success, 4711, ""};
  }

  kw::EchoReply echo(const std::string &text) override { return {text, std::nullopt}; }
  FlagReply removePackageWithID(const std::string &) override { return note("unexpected"); }
  FlagReply removeKextAtPath(const std::string &) override { return note("unexpected"); }
  FlagReply slimBinaryWithPath(const std::string &, const Strings &) override {
    return note("unexpected");
  }
  FlagReply removeLaunchdAgentAtPath(const std::string &) override { return note("unexpected"); }
  FlagReply enableLaunchdAgentAtPath(const std::string &) override { return note("unexpected"); }
  FlagReply disableLaunchdAgentAtPath(const std::string &) override { return note("unexpected"); }
  FlagReply removeSMLoginItem(const std::string &) override { return note("unexpected"); }
  FlagReply removeGlobalLoginItemForAppWithPath(const std::string &) override {
    return note("unexpected");
  }
  FlagReply startStartupItem(const std::string &) override { return note("unexpected"); }
  FlagReply stopStartupItem(const std::string &) override { return note("unexpected"); }
  FlagReply removeLibraryFromLauchdConf(const std::string &) override { return note("unexpected"); }
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

private:
  FlagReply note(const std::string &request) {
    record_.requests.push_back(request);
    if (record_.failure)
      throw *record_.failure;
    return {record_.success, std::nullopt};
  }
  Record &record_;
};

class MaintenanceCommands : public testing::Test {
protected:
  int run(const Strings &words) {
    std::vector<const char *> arguments{"keepwell", "maintenance"};
    for (const std::string &word : words)
      arguments.push_back(word.c_str());
    record.requests.clear();
    out.str("");
    err.str("");
    kw::Surroundings surroundings;
    surroundings.out = &out;
    surroundings.err = &err;
    surroundings.connect = [this](const std::string &) {
      return std::make_unique<RecordingClient>(record);
    };
    surroundings.outIsTerminal = outIsTerminal;
    return kw::runCommandLine(static_cast<int>(arguments.size()), arguments.data(), surroundings);
  }

  Record record;
  bool outIsTerminal = false;
  std::ostringstream out, err;
};

struct Row {
  Strings words;
  std::string request, done, failed;
};

const std::vector<Row> flagRows = {
    {{"erase-asl"},
     "asl",
     "Erased the system log store\n",
     "keepwell: the system log store could not be erased\n"},
    {{"flush-dns"},
     "dns",
     "Flushed the caches of names\n",
     "keepwell: the caches of names could not be flushed\n"},
    {{"periodic", "daily"},
     "periodic daily",
     "Ran the periodic scripts daily\n",
     "keepwell: daily could not be run\n"},
    {{"reindex-spotlight"},
     "reindex",
     "Asked for a new search index\n",
     "keepwell: a new search index could not be asked for\n"},
};

TEST_F(MaintenanceCommands, tellWhatTheAgentAnswered) {
  for (const Row &row : flagRows) {
    record.success = true;
    EXPECT_EQ(run(row.words), 0);
    EXPECT_EQ(record.requests, Strings{row.request});
    EXPECT_EQ(out.str(), row.done);
    EXPECT_EQ(err.str(), "");
    record.success = false;
    EXPECT_EQ(run(row.words), 1);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), row.failed);
  }
}

TEST_F(MaintenanceCommands, printOneObjectForPrograms) {
  EXPECT_EQ(run({"erase-asl", "--json"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"maintenance erase-asl\",\"success\":true}\n");
  record.success = false;
  EXPECT_EQ(run({"periodic", "a \"b\"", "--json"}), 1);
  EXPECT_EQ(out.str(),
            "{\"command\":\"maintenance periodic\",\"name\":\"a \\\"b\\\"\",\"success\":false}\n");
}

TEST_F(MaintenanceCommands, needTheirWords) {
  for (const Strings &words : {Strings{}, Strings{"sweep"}, Strings{"periodic"},
                               Strings{"periodic", ""}, Strings{"erase-asl", "more"}}) {
    EXPECT_EQ(run(words), 2);
    EXPECT_TRUE(record.requests.empty());
  }
}

TEST_F(MaintenanceCommands, tellThatNobodyAnswers) {
  record.failure = ClientError(ClientError::Kind::Unreachable, "NoReply", "it is gone");
  for (const char *verb :
       {"erase-asl", "erase-unified-log", "flush-dns", "reindex-spotlight", "repair-permissions"}) {
    EXPECT_EQ(run({verb}), 3);
    EXPECT_EQ(err.str(), "keepwell: the agent cannot be reached: it is gone\n");
  }
}

TEST_F(MaintenanceCommands, passOnWhatTheLogToolSaid) {
  record.erasure = {"gone \x1b[1m\n", 0, "", std::nullopt};
  EXPECT_EQ(run({"erase-unified-log"}), 0);
  EXPECT_EQ(out.str(), "gone \\x1b[1m\nErased the unified log\n");
  record.erasure = {"", 77, "not you\n", std::nullopt};
  EXPECT_EQ(run({"erase-unified-log"}), 1);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "keepwell: not you\nkeepwell: the unified log could not be erased: its tool "
                       "ended with status 77\n");
  EXPECT_EQ(run({"erase-unified-log", "--json"}), 1);
  EXPECT_EQ(out.str(), "{\"command\":\"maintenance erase-unified-log\",\"success\":false,"
                       "\"status\":77,\"errorOutput\":\"not you\\n\"}\n");
}

TEST_F(MaintenanceCommands, judgeTheErasureByItsErrorToo) {
  NS::Error error(kw::kTaskRunnerErrorDomain, 0, {{"NSLocalizedDescription", "no such tool"}});
  record.erasure = {"", -1, "", error};
  EXPECT_EQ(run({"erase-unified-log"}), 1);
  EXPECT_EQ(err.str(), "keepwell: the unified log could not be erased: no such tool\n");
  record.erasure.status = 0;
  EXPECT_EQ(run({"erase-unified-log"}), 1) << "an error without a bad status is one as well";
}

TEST_F(MaintenanceCommands, showTheRepairToAPersonAsItComes) {
  record.chunks = {"one\n", "two\x1b[2J", " three\nfo", "ur", ""};
  outIsTerminal = true;
  EXPECT_EQ(run({"repair-permissions"}), 0);
  EXPECT_EQ(out.str(), "one\ntwo\\x1b[2J three\nfour\nThe repair tool has ended, process 4711\n");
}

TEST_F(MaintenanceCommands, keepTheRepairsProgressFromAFile) {
  record.chunks = {"one\n", "two"};
  EXPECT_EQ(run({"repair-permissions"}), 0);
  EXPECT_EQ(out.str(), "The repair tool has ended, process 4711\n");
}

TEST_F(MaintenanceCommands, printAnObjectForEachChunkOfTheRepair) {
  record.chunks = {"one\n", "two", ""};
  outIsTerminal = true;
  EXPECT_EQ(run({"repair-permissions", "--json"}), 0);
  EXPECT_EQ(out.str(),
            "{\"command\":\"maintenance repair-permissions\",\"progress\":\"one\\n\"}\n"
            "{\"command\":\"maintenance repair-permissions\",\"progress\":\"two\"}\n"
            "{\"command\":\"maintenance repair-permissions\",\"success\":true,\"process\":4711}\n");
}

} // namespace
