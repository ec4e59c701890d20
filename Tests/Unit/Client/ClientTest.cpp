// Each typed call as the message that it sends and the reply that it makes of
// what comes back.
#include "Client/Client.h"
#include "Client/AgentConnection.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

// The bus library loses what it had made for an address that cannot be
// reached; nothing of ours is let off by this. Called by the leak sanitizer.
extern "C" const char *__lsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
  return "leak:sd_bus_new\n";
}

namespace {

using kw::Client;
using kw::FlagReply;
using NS::XPCKind;
using Strings = std::vector<std::string>;

// Notes what was sent and answers with what the test laid ready.
class FakeConnection final : public kw::AgentConnection {
public:
  struct Sent {
    std::string member;
    NS::XPCValues arguments;
    ReplyKinds reply;
  };
  struct Record {
    std::vector<Sent> sent;
    NS::XPCValues answer;
    std::optional<kw::ClientError> failure;
    Strings chunks;
    std::string terminatedWith;
  };

  explicit FakeConnection(Record &record) : record_(record) {}

  NS::XPCValues call(const std::string &member, const NS::XPCValues &arguments,
                     const ReplyKinds &reply) override {
    record_.sent.push_back({member, arguments, reply});
    if (record_.failure)
      throw *record_.failure;
    return record_.answer;
  }
  NS::XPCValues callWithProgress(const std::string &member, const ReplyKinds &reply,
                                 const Chunk &chunk) override {
    for (const std::string &text : record_.chunks)
      chunk(text);
    return call(member, {}, reply);
  }
  void callUntilNameIsLost(const std::string &member) override { record_.terminatedWith = member; }

private:
  Record &record_;
};

class ClientTest : public testing::Test {
protected:
  FakeConnection::Record record;
  std::unique_ptr<Client> client = Client::overConnection(std::make_unique<FakeConnection>(record));
  NS::Error error{NS::CocoaErrorDomain, 513};
};

struct FlagCall {
  std::string member;
  Strings arguments;
  std::function<FlagReply(Client &)> call;
};

// Every operation that answers with a flag and takes strings.
const std::vector<FlagCall> &flagCalls() {
  static const std::vector<FlagCall> calls{
      {"FileExistsAtPath", {"/a"}, [](Client &c) { return c.fileExistsAtPath("/a"); }},
      {"MoveItemAtPath", {"/a", "/b"}, [](Client &c) { return c.moveItemAtPath("/a", "/b"); }},
      {"RemoveItemAtPath", {"/a"}, [](Client &c) { return c.removeItemAtPath("/a"); }},
      {"SecurelyRemoveItemAtPath",
       {"/a"},
       [](Client &c) { return c.securelyRemoveItemAtPath("/a"); }},
      {"TruncateFileAtPath", {"/a"}, [](Client &c) { return c.truncateFileAtPath("/a"); }},
      {"RemovePackageWithID", {"id"}, [](Client &c) { return c.removePackageWithID("id"); }},
      {"RemoveKextAtPath", {"/a"}, [](Client &c) { return c.removeKextAtPath("/a"); }},
      {"RemoveASL", {}, [](Client &c) { return c.removeASL(); }},
      {"RemoveLaunchdAgentAtPath",
       {"/a"},
       [](Client &c) { return c.removeLaunchdAgentAtPath("/a"); }},
      {"EnableLaunchdAgentAtPath",
       {"/a"},
       [](Client &c) { return c.enableLaunchdAgentAtPath("/a"); }},
      {"DisableLaunchdAgentAtPath",
       {"/a"},
       [](Client &c) { return c.disableLaunchdAgentAtPath("/a"); }},
      {"RemoveSMLoginItem", {"id"}, [](Client &c) { return c.removeSMLoginItem("id"); }},
      {"StartStartupItem", {"name"}, [](Client &c) { return c.startStartupItem("name"); }},
      {"StopStartupItem", {"name"}, [](Client &c) { return c.stopStartupItem("name"); }},
      {"RunPeriodicScript", {"daily"}, [](Client &c) { return c.runPeriodicScript("daily"); }},
      {"StartSpotlightReindex", {}, [](Client &c) { return c.startSpotlightReindex(); }},
      {"RemoveGlobalLoginItemForAppWithPath",
       {"/a"},
       [](Client &c) { return c.removeGlobalLoginItemForAppWithPath("/a"); }},
      {"RemoveLibraryFromLauchdConf",
       {"/a"},
       [](Client &c) { return c.removeLibraryFromLauchdConf("/a"); }},
      {"FlushDNS", {}, [](Client &c) { return c.flushDNS(); }},
  };
  return calls;
}

TEST_F(ClientTest, sendsTheMessageOfEachOperationThatAnswersWithAFlag) {
  for (const FlagCall &operation : flagCalls()) {
    for (bool flag : {true, false}) {
      record.sent.clear();
      record.answer = {flag, std::monostate()};
      FlagReply reply = operation.call(*client);
      EXPECT_EQ(reply.success, flag) << operation.member;
      EXPECT_FALSE(reply.error) << operation.member;
      ASSERT_EQ(record.sent.size(), 1u);
      EXPECT_EQ(record.sent[0].member, operation.member);
      Strings arguments;
      for (const NS::XPCValue &argument : record.sent[0].arguments)
        arguments.push_back(std::get<std::string>(argument));
      EXPECT_EQ(arguments, operation.arguments) << operation.member;
      EXPECT_EQ(record.sent[0].reply, (std::vector{XPCKind::Flag, XPCKind::Error}));
    }
  }
}

TEST_F(ClientTest, passesTheErrorOfAReplyEvenBesideASuccess) {
  record.answer = {true, error};
  FlagReply reply = client->removeItemAtPath("/a");
  EXPECT_TRUE(reply.success);
  ASSERT_TRUE(reply.error);
  EXPECT_EQ(reply.error->code(), 513);
}

TEST_F(ClientTest, turnsTheFlagOfTheTrash) {
  record.answer = {true, error};
  FlagReply failed = client->moveToTrashItemAtPath("/a");
  EXPECT_FALSE(failed.success);
  EXPECT_TRUE(failed.error);
  record.answer = {false, std::monostate()};
  EXPECT_TRUE(client->moveToTrashItemAtPath("/a").success);
  EXPECT_EQ(record.sent[0].member, "MoveToTrashItemAtPath");
}

TEST_F(ClientTest, sendsTheArchitecturesAsAnArray) {
  record.answer = {true, std::monostate()};
  EXPECT_TRUE(client->slimBinaryWithPath("/a", {"i386", "ppc"}).success);
  EXPECT_EQ(record.sent[0].member, "SlimBinaryWithPath");
  EXPECT_EQ(std::get<std::string>(record.sent[0].arguments[0]), "/a");
  EXPECT_EQ(std::get<Strings>(record.sent[0].arguments[1]), (Strings{"i386", "ppc"}));
}

TEST_F(ClientTest, givesTheTextOfAnEcho) {
  record.answer = {std::string("hello"), std::monostate()};
  kw::EchoReply reply = client->echo("hello");
  EXPECT_EQ(reply.text, "hello");
  EXPECT_FALSE(reply.error);
  EXPECT_EQ(record.sent[0].reply, (std::vector{XPCKind::String, XPCKind::Error}));
}

TEST_F(ClientTest, givesSizesOf64Bits) {
  record.answer = {std::int64_t{1} << 62, std::monostate()};
  EXPECT_EQ(client->sizeOfItemAtPath("/a").size, std::int64_t{1} << 62);
  EXPECT_EQ(record.sent[0].member, "SizeOfItemAtPath");
  EXPECT_EQ(record.sent[0].reply, (std::vector{XPCKind::Int64, XPCKind::Error}));
}

TEST_F(ClientTest, passesOnTheProgressOfTheRepairBeforeItsReply) {
  record.chunks = {"one", "two"};
  record.answer = {true, std::int32_t{7}, std::string()};
  Strings heard;
  kw::RepairReply reply =
      client->repairPermissions([&](const std::string &chunk) { heard.push_back(chunk); });
  EXPECT_EQ(heard, record.chunks);
  EXPECT_TRUE(reply.success);
  EXPECT_EQ(reply.value, 7);
  EXPECT_EQ(reply.text, "");
  EXPECT_EQ(record.sent[0].member, "RepairPermissions");
}

TEST_F(ClientTest, givesAllFourPartsOfTheDiagnosticLogsReply) {
  record.answer = {std::string("out"), std::int64_t{64}, std::string("err"), error};
  kw::DiagnosticLogsReply reply = client->removeDiagnosticLogs();
  EXPECT_EQ(reply.output, "out");
  EXPECT_EQ(reply.status, 64);
  EXPECT_EQ(reply.errorOutput, "err");
  EXPECT_TRUE(reply.error);
  EXPECT_EQ(record.sent[0].member, "RemoveDiagnosticLogs");
}

TEST_F(ClientTest, waitsForTheEndOfTheAgent) {
  client->pleaseTerminate();
  EXPECT_EQ(record.terminatedWith, "PleaseTerminate");
}

TEST_F(ClientTest, throwsWhatTheConnectionThrows) {
  record.failure = kw::ClientError(kw::ClientError::Kind::Refused, "some.Name", "not here");
  try {
    static_cast<void>(client->flushDNS());
    FAIL();
  } catch (const kw::ClientError &failure) {
    EXPECT_EQ(failure.kind(), kw::ClientError::Kind::Refused);
    EXPECT_EQ(failure.name(), "some.Name");
    EXPECT_STREQ(failure.what(), "not here");
  }
}

TEST(Client, cannotReachABusThatIsNotThere) {
  for (const char *bus : {"unix:path=/nowhere/bus", "no address at all", ""}) {
    try {
      static_cast<void>(Client::connect(bus));
      FAIL() << bus;
    } catch (const kw::ClientError &failure) {
      EXPECT_EQ(failure.kind(), kw::ClientError::Kind::Unreachable) << bus;
    }
  }
}

} // namespace
