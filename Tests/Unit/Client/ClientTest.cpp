// Checks the message and the decoded reply of each typed call.
#include "Client/Client.h"

#include "Support/FakeAgent.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

// The bus library leaks memory of an address that it cannot reach. This
// suppression covers none of our code. The leak sanitizer calls the function.
extern "C" const char *__lsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
  return "leak:sd_bus_new\n";
}

namespace {

using kw::Client;
using kw::ClientError;
using kw::FlagReply;
using kw::Outcome;
using NS::XPCKind;
using Strings = std::vector<std::string>;

class ClientTest : public testing::Test {
protected:
  // Each request gets this.
  void answerWith(const NS::XPCValues &values) {
    agent.setHandler([values](const kw::AgentMessage &) { return values; });
  }

  kwtest::FakeAgent agent;
  std::unique_ptr<Client> client = agent.client();
  NS::Error error{NS::CocoaErrorDomain, 513};
};

struct FlagCall {
  std::string member;
  Strings arguments;
  std::function<bool(Client &)> call;
};

// Every operation that answers with a flag and takes strings, as whether the
// flag that came said YES.
const std::vector<FlagCall> &flagCalls() {
  static const std::vector<FlagCall> calls{
      {"FileExistsAtPath",
       {"/a"},
       [](Client &c) { return c.fileExistsAtPath("/a").existence == kw::Existence::Exists; }},
      {"MoveItemAtPath",
       {"/a", "/b"},
       [](Client &c) { return c.moveItemAtPath("/a", "/b").isDone(); }},
      {"RemoveItemAtPath", {"/a"}, [](Client &c) { return c.removeItemAtPath("/a").isDone(); }},
      {"SecurelyRemoveItemAtPath",
       {"/a"},
       [](Client &c) { return c.securelyRemoveItemAtPath("/a").isDone(); }},
      {"TruncateFileAtPath", {"/a"}, [](Client &c) { return c.truncateFileAtPath("/a").isDone(); }},
      {"RemovePackageWithID",
       {"id"},
       [](Client &c) { return c.removePackageWithID("id").isDone(); }},
      {"RemoveKextAtPath", {"/a"}, [](Client &c) { return c.removeKextAtPath("/a").isDone(); }},
      {"RemoveASL", {}, [](Client &c) { return c.removeASL().isDone(); }},
      {"RemoveLaunchdAgentAtPath",
       {"/a"},
       [](Client &c) {
         return c.removeLaunchdAgentAtPath("/a").removal == kw::JobRemoval::Removed;
       }},
      {"EnableLaunchdAgentAtPath",
       {"/a"},
       [](Client &c) { return c.enableLaunchdAgentAtPath("/a").isDone(); }},
      {"DisableLaunchdAgentAtPath",
       {"/a"},
       [](Client &c) { return c.disableLaunchdAgentAtPath("/a").isDone(); }},
      {"RemoveSMLoginItem", {"id"}, [](Client &c) { return c.removeSMLoginItem("id").isDone(); }},
      {"StartStartupItem",
       {"name"},
       [](Client &c) { return c.startStartupItem("name").attempt == kw::Attempt::Made; }},
      {"StopStartupItem",
       {"name"},
       [](Client &c) { return c.stopStartupItem("name").attempt == kw::Attempt::Made; }},
      {"RunPeriodicScript",
       {"daily"},
       [](Client &c) { return c.runPeriodicScript("daily").attempt == kw::Attempt::Made; }},
      {"StartSpotlightReindex",
       {},
       [](Client &c) { return c.startSpotlightReindex().attempt == kw::Attempt::Made; }},
      {"RemoveGlobalLoginItemForAppWithPath",
       {"/a"},
       [](Client &c) { return c.removeGlobalLoginItemForAppWithPath("/a").isDone(); }},
      {"RemoveLibraryFromLauchdConf",
       {"/a"},
       [](Client &c) { return c.removeLibraryFromLauchdConf("/a").isDone(); }},
      {"FlushDNS", {}, [](Client &c) { return c.flushDNS().isDone(); }},
  };
  return calls;
}

TEST_F(ClientTest, sendsTheMessageOfEachOperationThatAnswersWithAFlag) {
  for (const FlagCall &operation : flagCalls()) {
    for (bool flag : {true, false}) {
      agent.forget();
      answerWith({flag, std::monostate()});
      EXPECT_EQ(operation.call(*client), flag) << operation.member;
      ASSERT_EQ(agent.sent().size(), 1u);
      kw::AgentMessage message = agent.sent()[0];
      EXPECT_EQ(message.member, operation.member);
      Strings arguments;
      for (const NS::XPCValue &argument : message.arguments)
        arguments.push_back(std::get<std::string>(argument));
      EXPECT_EQ(arguments, operation.arguments) << operation.member;
      EXPECT_EQ(message.replyKinds, (std::vector{XPCKind::Flag, XPCKind::Error}));
      EXPECT_FALSE(message.hasProgress || message.mayEndAgent) << operation.member;
    }
  }
}

TEST_F(ClientTest, tellsTheErrorOfTheFirstAttemptFromThatOfAFailedRemoval) {
  answerWith({true, error});
  kw::RemovalReply removed = client->removeItemAtPath("/a");
  EXPECT_TRUE(removed.isDone());
  EXPECT_FALSE(removed.error);
  ASSERT_TRUE(removed.firstAttempt);
  EXPECT_EQ(removed.firstAttempt->code(), 513);
  answerWith({false, error});
  kw::RemovalReply left = client->removeItemAtPath("/a");
  EXPECT_FALSE(left.isDone());
  EXPECT_FALSE(left.firstAttempt);
  ASSERT_TRUE(left.error);
  EXPECT_EQ(left.error->code(), 513);
}

TEST_F(ClientTest, givesTheErrorOfAMove) {
  answerWith({false, error});
  FlagReply reply = client->moveItemAtPath("/a", "/b");
  EXPECT_FALSE(reply.isDone());
  ASSERT_TRUE(reply.error);
  EXPECT_EQ(reply.error->code(), 513);
}

TEST_F(ClientTest, turnsTheFlagOfTheTrash) {
  answerWith({true, error});
  FlagReply failed = client->moveToTrashItemAtPath("/a");
  EXPECT_EQ(failed.outcome, Outcome::NotDone);
  EXPECT_TRUE(failed.error);
  answerWith({false, std::monostate()});
  EXPECT_EQ(client->moveToTrashItemAtPath("/a").outcome, Outcome::Done);
  EXPECT_EQ(agent.requests(), (Strings{"MoveToTrashItemAtPath /a", "MoveToTrashItemAtPath /a"}));
}

TEST_F(ClientTest, sendsTheArchitecturesAsAnArray) {
  EXPECT_TRUE(client->slimBinaryWithPath("/a", {"i386", "ppc"}).isDone());
  kw::AgentMessage message = agent.sent().at(0);
  EXPECT_EQ(message.member, "SlimBinaryWithPath");
  EXPECT_EQ(std::get<std::string>(message.arguments[0]), "/a");
  EXPECT_EQ(std::get<Strings>(message.arguments[1]), (Strings{"i386", "ppc"}));
}

TEST_F(ClientTest, givesTheTextOfAnEcho) {
  EXPECT_EQ(client->echo("hello").text, "hello");
  EXPECT_EQ(agent.sent()[0].replyKinds, (std::vector{XPCKind::String, XPCKind::Error}));
}

TEST_F(ClientTest, givesSizesWithoutASign) {
  answerWith({std::int64_t{-1}, std::monostate()});
  EXPECT_EQ(client->sizeOfItemAtPath("/a").allocatedBytes, ~std::uint64_t{0});
  EXPECT_FALSE(client->sizeOfItemAtPath("/a").error);
  EXPECT_EQ(agent.requests().front(), "SizeOfItemAtPath /a");
  EXPECT_EQ(agent.sent()[0].replyKinds, (std::vector{XPCKind::Int64, XPCKind::Error}));
}

TEST_F(ClientTest, tellsASizeFromOneThatCouldNotBeMeasured) {
  answerWith({std::int64_t{0}, error});
  kw::SizeReply reply = client->sizeOfItemAtPath("/a");
  ASSERT_TRUE(reply.error);
  EXPECT_EQ(reply.error->code(), 513);
}

TEST_F(ClientTest, passesOnTheProgressOfTheRepairBeforeItsReply) {
  answerWith({true, std::int32_t{7}, std::string()});
  agent.hold();
  Strings heard;
  auto repair =
      client->repairPermissionsAsync([&](const std::string &chunk) { heard.push_back(chunk); });
  agent.waitUntilSent(1);
  agent.sendProgress("one");
  agent.sendProgress("two");
  agent.release();
  kw::RepairReply reply = repair.get();
  EXPECT_EQ(heard, (Strings{"one", "two"}));
  EXPECT_EQ(reply.attempt, kw::Attempt::Made);
  EXPECT_EQ(reply.toolProcess, 7);
  EXPECT_EQ(agent.sent()[0].member, "RepairPermissions");
  EXPECT_TRUE(agent.sent()[0].hasProgress);
}

TEST_F(ClientTest, repairsWithoutProgressToo) {
  agent.hold();
  auto repair = client->repairPermissionsAsync(nullptr);
  agent.waitUntilSent(1);
  agent.sendProgress("unheard");
  agent.release();
  EXPECT_EQ(repair.get().attempt, kw::Attempt::Made);
}

TEST_F(ClientTest, tellsAToolThatFailedFromOneThatCouldNotBeRun) {
  answerWith({std::string("out"), std::int64_t{64}, std::string("err"), std::monostate()});
  kw::LogErasureReply failed = client->removeDiagnosticLogs();
  EXPECT_FALSE(failed.isErased());
  EXPECT_EQ(failed.output, "out");
  EXPECT_EQ(failed.toolStatus, 64);
  EXPECT_EQ(failed.errorOutput, "err");
  EXPECT_FALSE(failed.error);
  answerWith({std::string(), std::int64_t{-1}, std::string(), error});
  kw::LogErasureReply missing = client->removeDiagnosticLogs();
  EXPECT_FALSE(missing.isErased());
  EXPECT_FALSE(missing.output || missing.errorOutput || missing.toolStatus);
  EXPECT_TRUE(missing.error);
  answerWith({std::string(), std::int64_t{0}, std::string(), std::monostate()});
  EXPECT_TRUE(client->removeDiagnosticLogs().isErased());
}

TEST_F(ClientTest, waitsForTheEndOfTheAgent) {
  client->pleaseTerminate();
  EXPECT_EQ(agent.requests(), Strings{"PleaseTerminate"});
  EXPECT_TRUE(agent.sent()[0].mayEndAgent);
}

TEST_F(ClientTest, knowsThatTheAgentEndsWithItsOwnJob) {
  answerWith({});
  kw::JobRemovalReply reply =
      client->removeLaunchdAgentAtPath("/Library/LaunchDaemons/org.keepwell.pro.agent.plist");
  EXPECT_EQ(reply.removal, kw::JobRemoval::AgentRemoved);
  EXPECT_TRUE(agent.sent()[0].mayEndAgent);
}

TEST_F(ClientTest, throwsTheErrorOfTheConnection) {
  agent.setHandler([](const kw::AgentMessage &) {
    return ClientError(ClientError::Kind::Refused, "some.Name", "not here");
  });
  try {
    static_cast<void>(client->flushDNS());
    FAIL();
  } catch (const ClientError &failure) {
    EXPECT_EQ(failure.kind(), ClientError::Kind::Refused);
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
