// Cancelling, following and ending requests on a real bus, against a stand-in
// for an agent that can and for one that cannot.
#include "Client/Client.h"

#include "Support/PrivateBus.h"
#include "Support/StandInAgent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using kw::Client;
using kw::ClientError;
using kwtest::StandInAgent;
using Strings = std::vector<std::string>;

class AgentControlTest : public testing::Test {
protected:
  void SetUp() override {
    if (!bus.isRunning())
      GTEST_SKIP() << "no dbus-daemon";
    client = Client::connect(bus.address());
  }
  static void expectCancelled(const kw::Request<kw::FlagReply> &request) {
    const ClientError *error = request.wait().error();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->kind(), ClientError::Kind::Cancelled) << error->what();
    EXPECT_EQ(error->effect(), ClientError::Effect::Unknown);
  }
  static kw::RequestOptions following(Strings &paths) {
    kw::RequestOptions options;
    options.progress = [&paths](const kw::RequestProgress &progress) {
      paths.push_back(progress.path + " " + std::to_string(progress.items) + " " +
                      std::to_string(progress.bytes));
    };
    return options;
  }
  // Returns when the bus has passed it on.
  static void sendForgedProgress(NS::BusConnection &stranger, const std::string &caller,
                                 std::uint32_t serial) {
    NS::BusMessage signal =
        stranger.makeSignal(caller, StandInAgent::path, StandInAgent::controlInterface, "Progress");
    signal.write(serial);
    signal.write(std::uint64_t{7});
    signal.write(std::uint64_t{7});
    signal.write("/forged");
    stranger.send(signal);
    stranger.requestName("org.keepwell.test"); // answered when the signal has gone
  }

  kwtest::PrivateBus bus;
  std::unique_ptr<Client> client;
};

TEST_F(AgentControlTest, hasTheAgentCancel) {
  StandInAgent agent(bus.address());
  auto request = client->securelyRemoveItemAtPathAsync("/a");
  agent.waitUntilShredding();
  request.cancel();
  expectCancelled(request);
  EXPECT_EQ(agent.calls(), (Strings{"SecurelyRemoveItemAtPath", "Cancel"}));
  EXPECT_EQ(client->echo("next").text, "next");
}

TEST_F(AgentControlTest, hasTheAgentGoOnWithOtherRequests) {
  StandInAgent agent(bus.address());
  auto other = client->securelyRemoveItemAtPathAsync("/a");
  auto request = client->securelyRemoveItemAtPathAsync("/b");
  agent.waitUntilCalled("SecurelyRemoveItemAtPath", 2);
  request.cancel();
  expectCancelled(request);
  EXPECT_FALSE(other.isEnded());
}

TEST_F(AgentControlTest, tellsOfWorkThatWasDoneBeforeItCouldBeCancelled) {
  StandInAgent agent(bus.address());
  agent.finishWhenCancelled();
  auto request = client->securelyRemoveItemAtPathAsync("/a");
  agent.waitUntilShredding();
  request.cancel();
  EXPECT_TRUE(request.get().isDone());
}

TEST_F(AgentControlTest, waitsNoLongerForAnAgentThatCannotCancel) {
  for (StandInAgent::Age age : {StandInAgent::Age::Old, StandInAgent::Age::ToCome}) {
    StandInAgent agent(bus.address(), age);
    auto request = client->securelyRemoveItemAtPathAsync("/a");
    agent.waitUntilShredding();
    request.cancel();
    expectCancelled(request);
    EXPECT_EQ(client->echo("next").text, "next");
  }
}

// The bus lets a connection have 128 calls without an answer.
TEST_F(AgentControlTest, hasManyCancelledAtOnce) {
  StandInAgent agent(bus.address());
  std::vector<kw::Request<kw::FlagReply>> requests;
  for (int number = 0; number < 1000; ++number)
    requests.push_back(client->securelyRemoveItemAtPathAsync("/a"));
  agent.waitUntilShredding();
  client->cancelAll();
  for (const auto &request : requests) {
    const ClientError *error = request.wait().error();
    ASSERT_NE(error, nullptr);
    ASSERT_EQ(error->kind(), ClientError::Kind::Cancelled) << error->what();
  }
  EXPECT_EQ(client->echo("next").text, "next");
}

// At most 16 calls to cancel are on their way; the others wait.
TEST_F(AgentControlTest, asksToCancelNoRequestThatHasBeenAnsweredMeanwhile) {
  StandInAgent agent(bus.address());
  agent.endAllWhenOneIsCancelled();
  std::vector<kw::Request<kw::FlagReply>> requests;
  for (int number = 0; number < 20; ++number)
    requests.push_back(client->securelyRemoveItemAtPathAsync("/a"));
  agent.waitUntilCalled("SecurelyRemoveItemAtPath", 20);
  client->cancelAll();
  expectCancelled(requests[0]);
  for (std::size_t number = 1; number < 20; ++number)
    EXPECT_TRUE(requests[number].get().isDone()) << number;
  EXPECT_EQ(client->echo("next").text, "next");
  Strings calls = agent.calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "Cancel"), 16);
}

TEST_F(AgentControlTest, findsTheBusGoneWhenItCancels) {
  StandInAgent agent(bus.address());
  auto request = client->securelyRemoveItemAtPathAsync("/a");
  agent.waitUntilShredding();
  client->echoAsync("x").then([&](const auto &) { // on the thread that also cancels
    bus.kill();
    request.cancel();
  });
  const ClientError *error = request.wait().error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->kind(), ClientError::Kind::Interrupted) << error->what();
}

TEST_F(AgentControlTest, hearsHowFarTheAgentHasCome) {
  StandInAgent agent(bus.address());
  Strings paths;
  EXPECT_TRUE(client->removeItemAtPath("/a").isDone());
  EXPECT_TRUE(client->removeItemAtPath("/a", following(paths)).isDone());
  EXPECT_TRUE(client->removeItemAtPath("/a", following(paths)).isDone());
  EXPECT_EQ(paths, (Strings{"/a/1 1 4096", "/a/2 2 8192", "/a/1 1 4096", "/a/2 2 8192"}));
  EXPECT_EQ(agent.calls(), (Strings{"RemoveItemAtPath", "SubscribeToProgress true",
                                    "RemoveItemAtPath", "RemoveItemAtPath"}));
}

TEST_F(AgentControlTest, leavesOutProgressThatItCannotUnderstand) {
  StandInAgent agent(bus.address());
  agent.talkNonsense();
  Strings paths;
  EXPECT_TRUE(client->removeItemAtPath("/a", following(paths)).isDone());
  EXPECT_EQ(paths, (Strings{"/a/1 1 4096", "/a/2 2 8192"}));
}

TEST_F(AgentControlTest, hearsNoProgressOfItsCancellation) {
  StandInAgent agent(bus.address());
  agent.talkNonsense();
  Strings paths;
  auto request = client->securelyRemoveItemAtPathAsync("/a", following(paths));
  agent.waitUntilShredding();
  request.cancel();
  expectCancelled(request);
  EXPECT_EQ(paths, Strings());
}

TEST_F(AgentControlTest, followsNothingOfAnAgentThatTellsNothing) {
  StandInAgent agent(bus.address(), StandInAgent::Age::Old);
  Strings paths;
  EXPECT_TRUE(client->removeItemAtPath("/a", following(paths)).isDone());
}

TEST_F(AgentControlTest, believesTheAgentAlone) {
  StandInAgent agent(bus.address());
  NS::BusConnection stranger(bus.address());
  agent.duringWork = [&](const std::string &caller, std::uint32_t serial) {
    sendForgedProgress(stranger, caller, serial);
  };
  Strings paths;
  static_cast<void>(client->removeItemAtPath("/a", following(paths)));
  EXPECT_EQ(paths, (Strings{"/a/1 1 4096", "/a/2 2 8192"}));
}

TEST_F(AgentControlTest, believesTheBusAloneAboutTheAgentsName) {
  StandInAgent agent(bus.address());
  NS::BusConnection stranger(bus.address());
  agent.duringWork = [&](const std::string &caller, std::uint32_t serial) {
    NS::BusMessage signal = stranger.makeSignal(
        caller, NS::BusConnection::busPath, NS::BusConnection::busInterface, "NameOwnerChanged");
    signal.write(StandInAgent::name);
    signal.write("");
    signal.write(stranger.uniqueName());
    stranger.send(signal);
    sendForgedProgress(stranger, caller, serial);
  };
  Strings paths;
  static_cast<void>(client->removeItemAtPath("/a", following(paths)));
  EXPECT_EQ(paths, (Strings{"/a/1 1 4096", "/a/2 2 8192"}));
}

TEST_F(AgentControlTest, asksEachAgentAnewToEndItsRequestsOnLeaving) {
  kw::ClientOptions options;
  options.endRequestsOnLeaving = true;
  client = Client::connect(bus.address(), options);
  for (int number = 0; number < 2; ++number) {
    StandInAgent agent(bus.address());
    EXPECT_EQ(client->echo("one").text, "one");
    EXPECT_EQ(client->echo("two").text, "two");
    // The first request to another agent may be on its way before the news.
    Strings calls = agent.calls();
    EXPECT_EQ(calls.back(), "Echo");
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (Strings{"Echo", "Echo", "EndRequestsOnLeaving true"}));
  }
}

TEST_F(AgentControlTest, asksForNothingByItself) {
  StandInAgent agent(bus.address());
  EXPECT_EQ(client->echo("one").text, "one");
  EXPECT_EQ(agent.calls(), Strings{"Echo"});
}

TEST_F(AgentControlTest, answersCallsOfStrangers) {
  StandInAgent agent(bus.address());
  std::string failure;
  agent.duringWork = [&](const std::string &caller, std::uint32_t) {
    NS::BusConnection stranger(bus.address());
    NS::BusMessage call = stranger.makeCall(caller, "/", "org.keepwell.Test", "Test");
    try {
      static_cast<void>(stranger.callAndWait(call));
    } catch (const NS::BusError &error) {
      failure = error.name();
    }
  };
  EXPECT_TRUE(client->removeItemAtPath("/a").isDone());
  EXPECT_EQ(failure, "org.freedesktop.DBus.Error.UnknownMethod");
}

} // namespace
