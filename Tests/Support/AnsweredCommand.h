// The command with an agent whose answers the test sets.
#pragma once

#include "CommandLine/CommandLine.h"

#include "Support/CommandRun.h"
#include "Support/FakeAgent.h"
#include "Support/ScratchFolder.h"

#include <chrono>
#include <gtest/gtest.h>
#include <optional>

namespace kwtest {

using kw::ClientError;
using Strings = std::vector<std::string>;

// The answers of these tests' agent.
struct Record {
  bool success = true; // inverted for the Trash, as the agent does
  std::optional<NS::Error> error;
  std::int64_t size = 0;
  std::optional<std::string> echo; // in place of the text sent
  std::optional<ClientError> failure;
  Strings buses;
  std::vector<kw::ClientOptions> connections;
  Strings requests;
};

inline FakeAgent::Answer answer(const Record &record, const kw::AgentMessage &message) {
  if (record.failure)
    return *record.failure;
  NS::XPCValues reply = FakeAgent::usualReply(message);
  if (message.member == "Echo" && record.echo)
    reply[0] = *record.echo;
  for (NS::XPCValue &value : reply) {
    if (auto *flag = std::get_if<bool>(&value))
      *flag = *flag == record.success;
    else if (std::holds_alternative<std::int64_t>(value))
      value = record.size;
    else if (std::holds_alternative<std::monostate>(value) && record.error)
      value = *record.error;
  }
  return reply;
}

class AnsweredCommand : public testing::Test {
protected:
  int run(const Strings &words) {
    FakeAgent agent([this](const kw::AgentMessage &message) { return answer(record, message); });
    kw::Surroundings surroundings;
    surroundings.connect = [&](const std::string &bus, const kw::ClientOptions &options) {
      record.buses.push_back(bus);
      record.connections.push_back(options);
      return agent.client();
    };
    surroundings.outIsTerminal = surroundings.errIsTerminal = onTerminal;
    surroundings.ask = ask;
    surroundings.trash = trash;
    surroundings.trashFolders = [this] { return kw::ownFolders(trashFolders); };
    if (testClock)
      surroundings.now = [this] { return *testClock += step; };
    surroundings.hasTool =
        surroundings.hasFile = [this](const std::string &path) { return path != missing; };
    int status = keepwell(words, std::move(surroundings));
    record.requests = agent.requests();
    return status;
  }

  Record record;
  bool onTerminal = false;
  // With this the clock is the test's: each look at it moves it on by a step.
  std::optional<std::chrono::steady_clock::time_point> testClock;
  std::chrono::milliseconds step{0};
  std::string missing; // a tool or a file
  std::function<std::optional<std::string>(const std::string &question)> ask;
  std::function<bool(const std::string &path)> trash; // this user's
  std::vector<kw::TrashFolder> trashFolders;
  kwtest::ScratchFolder scratch;
  std::string item = scratch.file("an item", "");
  kwtest::CommandRun keepwell;
  std::ostringstream &out = keepwell.out;
  std::ostringstream &err = keepwell.err;
  std::string &input = keepwell.input;
};

} // namespace kwtest
