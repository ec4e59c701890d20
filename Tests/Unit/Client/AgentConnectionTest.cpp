// The client on a real bus of its own, against a stand-in that serves the
// agent's name.
#include "Client/AgentConnection.h"
#include "Client/Client.h"
#include "Protocol/BusNames.h"

#include "Support/PrivateBus.h"
#include "Support/StandInAgent.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>

namespace {

using kw::Client;
using kw::ClientError;
using kwtest::StandInAgent;
using std::chrono::milliseconds;

ClientError failureOf(const std::function<void()> &request) {
  try {
    request();
  } catch (const ClientError &error) {
    return error;
  }
  ADD_FAILURE() << "no error was thrown";
  return ClientError(ClientError::Kind::Refused, "", "");
}

class AgentConnectionTest : public testing::Test {
protected:
  void SetUp() override {
    if (!bus.isRunning())
      GTEST_SKIP() << "no dbus-daemon";
    client = Client::connect(bus.address());
  }

  kwtest::PrivateBus bus;
  std::unique_ptr<Client> client;
};

TEST_F(AgentConnectionTest, bringsAnEchoBack) {
  StandInAgent agent(bus.address());
  for (const char *text : {"hello", "", "Grüße \xE2\x98\x83\n"})
    EXPECT_EQ(client->echo(text).text, text);
}

TEST_F(AgentConnectionTest, decodesAnErrorWithItsCause) {
  StandInAgent agent(bus.address());
  kw::FlagReply reply = client->moveItemAtPath("/a", "/b");
  EXPECT_FALSE(reply.isDone());
  ASSERT_TRUE(reply.error);
  EXPECT_EQ(reply.error->domain(), kw::CocoaErrorDomain);
  EXPECT_EQ(reply.error->code(), 513);
  EXPECT_EQ(std::get<std::string>(reply.error->userInfo().at("NSFilePath")), "/a");
  EXPECT_EQ(std::get<std::uint64_t>(reply.error->userInfo().at("count")), 7u);
  EXPECT_FALSE(reply.error->userInfo().contains("strange"));
  EXPECT_FALSE(reply.error->userInfo().contains("NSUnderlyingError"));
  ASSERT_NE(reply.error->underlyingError(), nullptr);
  EXPECT_EQ(reply.error->underlyingError()->code(), 13);
  EXPECT_EQ(reply.error->underlyingError()->localizedDescription(), "Permission denied");
}

TEST_F(AgentConnectionTest, hearsTheProgressAddressedToIt) {
  StandInAgent agent(bus.address());
  std::string heard;
  kw::RepairReply reply =
      client->repairPermissions([&](const std::string &chunk) { heard += chunk; });
  EXPECT_EQ(reply.attempt, kw::Attempt::Made);
  EXPECT_EQ(heard, "first\nsecond\n");
}

TEST_F(AgentConnectionTest, reportsAnErrorOfTheBusByItsName) {
  StandInAgent agent(bus.address());
  ClientError error = failureOf([&] { static_cast<void>(client->flushDNS()); });
  EXPECT_EQ(error.kind(), ClientError::Kind::Refused);
  EXPECT_EQ(error.name(), "org.freedesktop.DBus.Error.NotSupported");
  EXPECT_STREQ(error.what(), "FlushDNS is not here");
  EXPECT_EQ(client->echo("still here").text, "still here");
}

TEST_F(AgentConnectionTest, reportsAReplyThatIsNotAsAgreed) {
  StandInAgent agent(bus.address());
  ClientError error = failureOf([&] { static_cast<void>(client->sizeOfItemAtPath("/a")); });
  EXPECT_EQ(error.kind(), ClientError::Kind::BadReply);
  EXPECT_EQ(error.effect(), ClientError::Effect::Unknown);
  EXPECT_EQ(client->echo("still here").text, "still here");
}

TEST_F(AgentConnectionTest, doesNotSendTextThatCannotBeSent) {
  StandInAgent agent(bus.address());
  for (std::string text : {std::string("\xff\xfe"), std::string("/a\0/b", 5)}) {
    ClientError error = failureOf([&] { static_cast<void>(client->echo(text)); });
    EXPECT_EQ(error.kind(), ClientError::Kind::BadArgument);
  }
  ClientError error = failureOf([&] {
    static_cast<void>(client->slimBinaryWithPath("/a", {"ok", "\xff"}));
  });
  EXPECT_EQ(error.kind(), ClientError::Kind::BadArgument);
}

TEST_F(AgentConnectionTest, saysThatThereIsNoAgent) {
  for (const auto &request :
       std::vector<std::function<void()>>{[&] { static_cast<void>(client->echo("anybody")); },
                                          [&] { client->pleaseTerminate(); }}) {
    ClientError error = failureOf(request);
    EXPECT_EQ(error.kind(), ClientError::Kind::Unreachable) << error.name();
  }
}

TEST_F(AgentConnectionTest, waitsUntilTheNameHasNoOwner) {
  StandInAgent agent(bus.address());
  client->pleaseTerminate();
  ClientError error = failureOf([&] { static_cast<void>(client->echo("anybody")); });
  EXPECT_EQ(error.kind(), ClientError::Kind::Unreachable);
}

TEST_F(AgentConnectionTest, endsARequestToLeaveWithTheAnswerAndTheNameOnly) {
  StandInAgent agent(bus.address());
  agent.leaveAtEchoOnly("leave");
  auto request = client->pleaseTerminateAsync();
  agent.waitUntilCalled("PleaseTerminate");
  EXPECT_EQ(client->echo("stay").text, "stay"); // its answer comes after the other
  EXPECT_FALSE(request.isEnded());
  EXPECT_EQ(client->echo("leave").text, "leave");
  EXPECT_EQ(request.wait().error(), nullptr);
}

TEST_F(AgentConnectionTest, doesNotTakeTheLossOfTheNameForTheEndOfTheAgent) {
  StandInAgent agent(bus.address());
  agent.refuseToLeave();
  ClientError error = failureOf([&] { client->pleaseTerminate(); });
  EXPECT_EQ(error.kind(), ClientError::Kind::Refused);
  EXPECT_STREQ(error.what(), "there is work to do");
}

TEST_F(AgentConnectionTest, tellsAnAgentThatWentAwayFromOneThatNeverWasThere) {
  auto agent = std::make_unique<StandInAgent>(bus.address());
  auto request = client->securelyRemoveItemAtPathAsync("/a");
  agent->waitUntilShredding();
  agent.reset();
  const ClientError *error = request.wait().error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->kind(), ClientError::Kind::Interrupted);
  EXPECT_EQ(error->effect(), ClientError::Effect::Unknown);
  ClientError next = failureOf([&] { static_cast<void>(client->echo("anybody")); });
  EXPECT_EQ(next.kind(), ClientError::Kind::Unreachable);
  EXPECT_EQ(next.effect(), ClientError::Effect::None);
  StandInAgent another(bus.address());
  EXPECT_EQ(client->echo("again").text, "again");
}

TEST_F(AgentConnectionTest, reportsABusThatGoesAway) {
  StandInAgent agent(bus.address());
  auto request = client->securelyRemoveItemAtPathAsync("/a");
  agent.waitUntilShredding();
  bus.kill();
  const ClientError *interrupted = request.wait().error();
  ASSERT_NE(interrupted, nullptr);
  EXPECT_EQ(interrupted->kind(), ClientError::Kind::Interrupted) << interrupted->name();
  ClientError next = failureOf([&] { static_cast<void>(client->echo("anybody")); });
  EXPECT_EQ(next.kind(), ClientError::Kind::Unreachable) << next.name();
}

TEST_F(AgentConnectionTest, findsTheBusGoneWhenItSends) {
  StandInAgent agent(bus.address());
  std::promise<kw::Request<kw::EchoReply>> next;
  client->echoAsync("x").then([&](const auto &) { // on the thread that also sends
    bus.kill();
    next.set_value(client->echoAsync("y"));
  });
  auto request = next.get_future().get();
  const ClientError *error = request.wait().error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->kind(), ClientError::Kind::Unreachable) << error->name();
}

TEST_F(AgentConnectionTest, asksNoAgentWhoseEndTheBusWouldNotReport) {
  kwtest::PrivateBus strict("<limit name=\"max_match_rules_per_connection\">0</limit>");
  StandInAgent agent(strict.address());
  client = Client::connect(strict.address());
  ClientError error = failureOf([&] { static_cast<void>(client->repairPermissions(nullptr)); });
  EXPECT_EQ(error.kind(), ClientError::Kind::Interrupted);
  EXPECT_EQ(error.name(), "org.freedesktop.DBus.Error.LimitsExceeded");
  EXPECT_EQ(client->echo("still here").text, "still here");
}

TEST_F(AgentConnectionTest, asksTheBusOnceToReportTheEndOfTheAgent) {
  kwtest::PrivateBus strict("<limit name=\"max_match_rules_per_connection\">1</limit>");
  StandInAgent agent(strict.address());
  client = Client::connect(strict.address());
  for (int times = 0; times < 2; ++times)
    EXPECT_EQ(client->repairPermissions(nullptr).attempt, kw::Attempt::Made);
}

TEST_F(AgentConnectionTest, findsABusThatComesBack) {
  {
    StandInAgent agent(bus.address());
    EXPECT_EQ(client->echo("before").text, "before");
    bus.kill();
  }
  bus.restart();
  ASSERT_TRUE(bus.isRunning());
  StandInAgent agent(bus.address());
  EXPECT_EQ(client->echo("after").text, "after");
}

class LastAnswer final : public kw::AgentConnection::Receiver {
public:
  using Number = kw::AgentConnection::Number;

  Number number = 0;

private:
  void received(Number of, NS::XPCValues) override { number = of; }
  void failed(Number, const ClientError &) override {}
  void progressed(const std::string &) override {}
  void advanced(Number, const kw::RequestProgress &) override {}
  void isBeingCancelled(Number) override {}
  void couldNotCancel(Number) override {}
};

// An idle client needs no processor.
TEST_F(AgentConnectionTest, waitsWhenThereIsNoMessage) {
  using Clock = kw::AgentConnection::Clock;
  auto connection = kw::AgentConnection::open(bus.address());
  connection->waitUntilAccepted(std::nullopt, nullptr);
  LastAnswer none;
  bool hasWaited = false;
  for (int attempt = 0; attempt < 4 && !hasWaited; ++attempt) { // the bus sends a signal at first
    Clock::time_point until = Clock::now() + milliseconds(50);
    connection->wait(none, until);
    hasWaited = Clock::now() >= until;
  }
  EXPECT_TRUE(hasWaited);
}

// So that requests that waited for it can be sent.
TEST_F(AgentConnectionTest, waitsNoLongerThanUntilOneAnswer) {
  StandInAgent agent(bus.address());
  auto connection = kw::AgentConnection::open(bus.address());
  connection->waitUntilAccepted(std::nullopt, nullptr);
  LastAnswer last;
  for (LastAnswer::Number number : {1U, 2U}) {
    connection->send(number, {.member = "Echo",
                              .arguments = {std::string("x")},
                              .replyKinds = {NS::XPCKind::String, NS::XPCKind::Error}});
    static_cast<void>(client->echo("y")); // answered after the other
    while (last.number < number)
      connection->wait(last, std::nullopt);
  }
  EXPECT_EQ(last.number, 2U);
}

TEST_F(AgentConnectionTest, asksOnlySomeTimesASecondWhetherToGoOnConnecting) {
  bus.freeze();
  int calls = 0;
  kw::ClientOptions options;
  options.connectTimeLimit = milliseconds(20);
  options.keepConnecting = [&] { return ++calls > 0; };
  ClientError error =
      failureOf([&] { static_cast<void>(Client::connect(bus.address(), options)); });
  EXPECT_EQ(error.kind(), ClientError::Kind::DeadlinePassed);
  EXPECT_LE(calls, 2); // at first, and after the time
}

TEST_F(AgentConnectionTest, waitsForASilentBusNoLongerThanItMay) {
  bus.freeze();
  ClientError error = failureOf([&] {
    static_cast<void>(Client::connect(bus.address(), {.connectTimeLimit = milliseconds(20)}));
  });
  EXPECT_EQ(error.kind(), ClientError::Kind::DeadlinePassed);
  EXPECT_EQ(error.effect(), ClientError::Effect::None);
  int calls = 0;
  error = failureOf([&] {
    static_cast<void>(
        Client::connect(bus.address(), {.keepConnecting = [&] { return ++calls < 3; }}));
  });
  EXPECT_EQ(error.kind(), ClientError::Kind::Cancelled);
  EXPECT_EQ(calls, 3);
  bus.thaw();
  auto other = Client::connect(bus.address(), {.connectTimeLimit = milliseconds::max(),
                                               .keepConnecting = [] { return true; }});
  StandInAgent agent(bus.address());
  EXPECT_EQ(other->echo("here").text, "here");
}

TEST_F(AgentConnectionTest, endsItsRequestsWhenTheBusComesBackSilent) {
  bus.kill();
  bus.restart();
  ASSERT_TRUE(bus.isRunning());
  bus.freeze();
  ClientError late = failureOf([&] { static_cast<void>(client->echo("x", {milliseconds(20)})); });
  EXPECT_EQ(late.kind(), ClientError::Kind::DeadlinePassed);
  EXPECT_EQ(late.effect(), ClientError::Effect::None);
  auto cancelled = client->echoAsync("x");
  cancelled.cancel();
  EXPECT_EQ(failureOf([&] { cancelled.get(); }).kind(), ClientError::Kind::Cancelled);
  auto waiting = client->echoAsync("later");
  bus.thaw();
  EXPECT_EQ(failureOf([&] { waiting.get(); }).name(), "org.freedesktop.DBus.Error.ServiceUnknown");
  bus.kill();
  bus.restart();
  bus.freeze();
  auto abandoned = client->echoAsync("x");
  client.reset();
  EXPECT_EQ(failureOf([&] { abandoned.get(); }).kind(), ClientError::Kind::Cancelled);
}

TEST_F(AgentConnectionTest, cannotReachABusThatEndsBeforeItAcceptsTheConnection) {
  bus.kill();
  bus.restart();
  ASSERT_TRUE(bus.isRunning());
  bus.freeze();
  auto waiting = client->echoAsync("x");
  EXPECT_FALSE(waiting.waitFor(milliseconds(20)));
  bus.kill();
  ClientError error = failureOf([&] { waiting.get(); });
  EXPECT_EQ(error.kind(), ClientError::Kind::Unreachable);
  EXPECT_EQ(error.effect(), ClientError::Effect::None);
}

TEST_F(AgentConnectionTest, believesTheProgressOfTheAgentAlone) {
  StandInAgent agent(bus.address());
  NS::BusConnection stranger(bus.address());
  int forged = 0;
  agent.duringWork = [&](const std::string &caller, std::uint32_t) {
    NS::BusMessage signal = stranger.makeSignal(caller, StandInAgent::path,
                                                StandInAgent::outputInterface, "ReceiveNewOutput");
    signal.write("forged");
    stranger.send(signal);
    // With its answer to this the bus has passed on the signal.
    stranger.requestName("org.keepwell.test" + std::to_string(++forged));
  };
  std::string heard;
  static_cast<void>(client->repairPermissions([&](const std::string &text) { heard += text; }));
  EXPECT_EQ(forged, 1);
  EXPECT_EQ(heard, "first\nsecond\n");
}

TEST_F(AgentConnectionTest, carriesThousandsOfRequestsAtOnce) {
  StandInAgent agent(bus.address());
  std::vector<kw::Request<kw::EchoReply>> requests;
  for (int number = 0; number < 10'000; ++number)
    requests.push_back(client->echoAsync(std::to_string(number)));
  for (int number = 0; number < 10'000; ++number)
    ASSERT_EQ(requests[static_cast<std::size_t>(number)].get().text, std::to_string(number));
}

TEST_F(AgentConnectionTest, sendsOnlyAsMuchTextAsTheAgentTakes) {
  StandInAgent agent(bus.address());
  std::string most(kw::kMostArgumentBytes, 'x');
  EXPECT_EQ(client->echo(most).text.size(), most.size());
  ClientError error = failureOf([&] { static_cast<void>(client->echo(most + "x")); });
  EXPECT_EQ(error.kind(), ClientError::Kind::BadArgument);
  EXPECT_EQ(client->echo("still here").text, "still here");
}

// The text alone would not be too long.
TEST_F(AgentConnectionTest, doesNotSendAListForWhichTheBusWouldDisconnect) {
  StandInAgent agent(bus.address());
  std::vector<std::string> names(5'000'000);
  ClientError error =
      failureOf([&] { static_cast<void>(client->slimBinaryWithPath("/a", names)); });
  EXPECT_EQ(error.kind(), ClientError::Kind::BadArgument);
  EXPECT_EQ(client->echo("still here").text, "still here");
}

} // namespace
