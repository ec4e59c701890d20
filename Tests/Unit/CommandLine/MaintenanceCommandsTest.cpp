// The commands of system maintenance: which request each makes, and how it is
// told.
#include "CommandLine/CommandLine.h"

#include "Support/CommandRun.h"
#include "Support/FakeAgent.h"
#include "Support/FlushedAnswers.h"

#include "Protocol/Identity.h"

#include <gtest/gtest.h>

#include <future>
#include <sstream>
#include <thread>

namespace {

using kw::ClientError;
using kwtest::FakeAgent;
using Strings = std::vector<std::string>;

struct Record {
  Strings requests;
  bool success = true;
  // The unified log's tool.
  std::string output;
  std::int64_t status = 0;
  std::string errorOutput;
  std::optional<NS::Error> error;
  Strings chunks;
  std::optional<ClientError> failure;
};

FakeAgent::Answer answer(const Record &record, const kw::AgentMessage &message) {
  if (record.failure)
    return *record.failure;
  if (message.member == "RemoveDiagnosticLogs")
    return NS::XPCValues{record.output, record.status, record.errorOutput,
                         record.error ? NS::XPCValue(*record.error)
                                      : NS::XPCValue(std::monostate())};
  if (message.member == "RepairPermissions")
    return NS::XPCValues{record.success, std::int32_t{4711}, std::string()};
  return NS::XPCValues{record.success, std::monostate()};
}

class MaintenanceCommands : public testing::Test {
protected:
  int run(Strings words) {
    words.insert(words.begin(), "maintenance");
    FakeAgent agent([this](const kw::AgentMessage &message) { return answer(record, message); });
    agent.setChunks(record.chunks);
    kw::Surroundings surroundings;
    surroundings.connect = [&](const std::string &, const kw::ClientOptions &) {
      return agent.client();
    };
    surroundings.outIsTerminal = outIsTerminal;
    surroundings.ask = ask;
    int status = keepwell(words, std::move(surroundings));
    record.requests = agent.requests();
    return status;
  }

  Record record;
  bool outIsTerminal = false;
  std::function<std::optional<std::string>(const std::string &question)> ask;
  kwtest::CommandRun keepwell;
  std::ostringstream &out = keepwell.out;
  std::ostringstream &err = keepwell.err;
};

struct Row {
  Strings words;
  std::string request, done, failed;
};

const std::vector<Row> flagRows = {
    {{"erase-asl"},
     "RemoveASL",
     "Erased the system log store\n",
     "keepwell: the system log store could not be erased\n"},
    {{"flush-dns"},
     "FlushDNS",
     "Flushed the caches of names\n",
     "keepwell: the caches of names could not be flushed\n"},
    {{"periodic", "daily"},
     "RunPeriodicScript daily",
     "Ran the periodic scripts daily\n",
     "keepwell: daily could not be run\n"},
    {{"reindex-spotlight"},
     "StartSpotlightReindex",
     "Asked for a new search index\n",
     "keepwell: a new search index could not be asked for\n"},
};

TEST_F(MaintenanceCommands, tellTheAgentsAnswer) {
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
  EXPECT_EQ(
      out.str(),
      "{\"command\":\"maintenance periodic\",\"name\":\"a \\\"b\\\"\",\"success\":false,\"error\":"
      "{\"kind\":\"failed\",\"description\":\"the agent gave no reason\"}}\n");
}

TEST_F(MaintenanceCommands, needTheirWords) {
  for (const Strings &words : {Strings{}, Strings{"sweep"}, Strings{"periodic"},
                               Strings{"periodic", ""}, Strings{"erase-asl", "more"}}) {
    EXPECT_EQ(run(words), 2);
    EXPECT_TRUE(record.requests.empty());
  }
}

TEST_F(MaintenanceCommands, tellThatNoAgentAnswers) {
  record.failure = ClientError(ClientError::Kind::Unreachable, "NoReply", "it is gone");
  for (const char *verb :
       {"erase-asl", "erase-unified-log", "flush-dns", "reindex-spotlight", "repair-permissions"}) {
    EXPECT_EQ(run({verb}), 3);
    EXPECT_EQ(err.str(), "keepwell: the agent cannot be reached: it is gone\n");
  }
}

TEST_F(MaintenanceCommands, eraseNothingWithoutAYes) {
  Strings questions;
  ask = [&](const std::string &question) {
    questions.push_back(question);
    return "n";
  };
  for (const char *verb : {"erase-asl", "erase-unified-log"}) {
    EXPECT_EQ(run({verb}), 1);
    EXPECT_EQ(err.str(), "keepwell: not confirmed; nothing was done\n");
    EXPECT_TRUE(record.requests.empty());
    EXPECT_EQ(run({verb, "--yes"}), 0);
    EXPECT_EQ(record.requests.size(), 1u);
  }
  EXPECT_EQ(questions, (Strings{"Erase the system log store for good? [y/N] ",
                                "Erase the unified log for good? [y/N] "}));
}

TEST_F(MaintenanceCommands, passOnTheOutputOfTheLogTool) {
  record.output = "gone \x1b[1m\n";
  outIsTerminal = true;
  EXPECT_EQ(run({"erase-unified-log"}), 0);
  EXPECT_EQ(out.str(), "gone \\x1b[1m\nErased the unified log\n");
  record.output.clear();
  record.status = 77;
  record.errorOutput = "not you\n";
  EXPECT_EQ(run({"erase-unified-log"}), 1);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "keepwell: not you\nkeepwell: the unified log could not be erased: its tool "
                       "ended with status 77\n");
  EXPECT_EQ(run({"erase-unified-log", "--json"}), 1);
  EXPECT_EQ(out.str(), "{\"command\":\"maintenance erase-unified-log\",\"success\":false,"
                       "\"status\":77,\"errorOutput\":\"not you\\n\",\"error\":{\"kind\":"
                       "\"failed\",\"description\":\"its tool ended with status 77\"}}\n");
}

TEST_F(MaintenanceCommands, judgeTheErasureByItsErrorToo) {
  NS::Error error(kw::kTaskRunnerErrorDomain, 0, {{"NSLocalizedDescription", "no such tool"}});
  record.status = -1;
  record.error = error;
  EXPECT_EQ(run({"erase-unified-log"}), 1);
  EXPECT_EQ(err.str(), "keepwell: the unified log could not be erased: no such tool\n");
  record.status = 0;
  EXPECT_EQ(run({"erase-unified-log"}), 1) << "an error without a bad status is one as well";
}

TEST_F(MaintenanceCommands, showTheRepairToAPersonAsItComes) {
  record.chunks = {"one\n", "two\x1b[2J", " three\nfo", "ur", ""};
  outIsTerminal = true;
  EXPECT_EQ(run({"repair-permissions"}), 0);
  EXPECT_EQ(out.str(), "one\ntwo\\x1b[2J three\nfour\nThe repair tool has ended, process 4711\n");
}

TEST_F(MaintenanceCommands, endTheRepairsOpenLineWhenNoAnswerComes) {
  record.chunks = {"Checking /usr"};
  record.failure = ClientError(ClientError::Kind::Interrupted, "NoReply", "it ended");
  outIsTerminal = true;
  EXPECT_EQ(run({"repair-permissions"}), 3);
  EXPECT_EQ(out.str(), "Checking /usr\n");
  EXPECT_TRUE(err.str().starts_with("keepwell: ")) << err.str();
}

// Remembers whether any other thread than its maker's writes.
class ThreadsOfOutput : public std::stringbuf {
public:
  bool isOfOneThread = true;

protected:
  std::streamsize xsputn(const char *text, std::streamsize length) override {
    isOfOneThread &= std::this_thread::get_id() == maker_;
    return std::stringbuf::xsputn(text, length);
  }

private:
  const std::thread::id maker_ = std::this_thread::get_id();
};

// Runs the repair on a terminal that both streams lead to, and returns its status.
int repair(FakeAgent &agent, std::streambuf &output, bool asJSON) {
  std::ostream out(&output), err(&output);
  kw::Surroundings surroundings;
  surroundings.out = &out;
  surroundings.err = &err;
  surroundings.connect = [&](const std::string &, const kw::ClientOptions &) {
    return agent.client();
  };
  surroundings.hasTool = [](const std::string &) { return true; };
  surroundings.outIsTerminal = true;
  std::vector<const char *> words{"keepwell", "maintenance", "repair-permissions"};
  if (asJSON)
    words.push_back("--json");
  return kw::runCommandLine(static_cast<int>(words.size()), words.data(), surroundings);
}

// Both threads would write at once when a signal comes.
TEST(RepairOutput, isWrittenByTheCommandsThreadAlone) {
  for (bool asJSON : {false, true}) {
    FakeAgent agent;
    agent.setChunks({"one\n", "two\n"});
    ThreadsOfOutput output;
    EXPECT_EQ(repair(agent, output, asJSON), 0);
    EXPECT_TRUE(output.isOfOneThread) << output.str();
    EXPECT_NE(output.str().find("two"), std::string::npos);
  }
}

TEST(RepairOutput, comesWhileTheToolWorks) {
  for (bool asJSON : {false, true}) {
    FakeAgent agent;
    agent.hold();
    kwtest::FlushedAnswers output;
    auto status = std::async(std::launch::async, [&] { return repair(agent, output, asJSON); });
    agent.waitUntilSent(1);
    for (const char *chunk : {"one", "two"}) {
      agent.sendProgress(chunk);
      output.waitFor(chunk);
    }
    agent.release();
    EXPECT_EQ(status.get(), 0) << output.str();
  }
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
