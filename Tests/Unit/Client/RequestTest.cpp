// The outcome of requests that overlap, are given up, take too long or lose
// their connection; without a bus.
#include "Client/Client.h"

#include "Support/FakeAgent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace {

using kw::Client;
using kw::ClientError;
using kw::EchoReply;
using kw::Request;
using kw::RequestOptions;
using kw::Result;
using std::chrono::milliseconds;
using Strings = std::vector<std::string>;

const RequestOptions atOnce{milliseconds(0)};

class RequestTest : public testing::Test {
protected:
  static void expectFailure(const Request<EchoReply> &request, ClientError::Kind kind,
                            ClientError::Effect effect) {
    const ClientError *error = request.wait().error();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->kind(), kind) << error->what();
    EXPECT_EQ(error->effect(), effect) << error->what();
  }
  // Returns when the client has sent all that it may of the requests before. The
  // second request begins after the thread has come to the end of a turn that
  // knew of them.
  void letItSendAllThatItMay() {
    for (int times = 0; times < 2; ++times)
      expectFailure(client->echoAsync("late", atOnce), ClientError::Kind::DeadlinePassed,
                    ClientError::Effect::None);
  }
  // A request that the agent has though its time has passed. On a busy machine a
  // short time may pass before the sending.
  Request<EchoReply> sentAndLate() {
    for (milliseconds time(10);; time *= 2) {
      auto request = client->echoAsync("x", {time});
      const ClientError *error = request.wait().error();
      if (!error || error->effect() == ClientError::Effect::Unknown || time.count() > 20'000)
        return request;
    }
  }

  kwtest::FakeAgent agent;
  std::unique_ptr<Client> client = agent.client();
};

TEST_F(RequestTest, endsWithItsReply) {
  agent.hold();
  auto request = client->echoAsync("x");
  agent.waitUntilSent(1);
  EXPECT_FALSE(request.isEnded());
  EXPECT_FALSE(request.waitFor(milliseconds(1)));
  agent.release();
  EXPECT_TRUE(request.wait().hasReply());
  EXPECT_TRUE(request.isEnded());
  EXPECT_TRUE(request.waitFor(milliseconds(0)));
  EXPECT_EQ(request.get().text, "x");
  EXPECT_EQ(request.get().text, "x") << "a reply can be had again";
}

TEST_F(RequestTest, failsWhenTheReplyHasNoTextWhereItMustHaveOne) {
  agent.setHandler([](const kw::AgentMessage &) {
    return NS::XPCValues{std::monostate(), std::monostate()};
  });
  expectFailure(client->echoAsync("x"), ClientError::Kind::BadReply, ClientError::Effect::Unknown);
}

TEST_F(RequestTest, canBeWaitedForAsLongAsCanBeSaid) {
  agent.hold();
  auto request = client->echoAsync("x");
  EXPECT_FALSE(request.waitFor(milliseconds::min()));
  client->echoAsync("timer", {milliseconds(20)}).then([&](const auto &) { agent.release(); });
  EXPECT_TRUE(request.waitFor(milliseconds::max()));
}

TEST_F(RequestTest, hasNoTimeWhenItsLimitIsNegative) {
  agent.hold();
  for (milliseconds limit : {milliseconds(-1), milliseconds::min()}) {
    auto request = client->echoAsync("x", {limit});
    const ClientError *error = request.wait().error();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->kind(), ClientError::Kind::DeadlinePassed);
  }
}

TEST_F(RequestTest, isSentOneAfterTheOtherInOrder) {
  std::vector<Request<EchoReply>> requests;
  Strings expected;
  for (int number = 0; number < 1000; ++number) {
    requests.push_back(client->echoAsync(std::to_string(number)));
    expected.push_back("Echo " + std::to_string(number));
  }
  for (std::size_t number = 0; number < requests.size(); ++number)
    EXPECT_EQ(requests[number].get().text, std::to_string(number));
  EXPECT_EQ(agent.requests(), expected);
}

TEST_F(RequestTest, waitsInTheClientWhereTooManyAreOnTheirWay) {
  agent.hold();
  std::vector<Request<EchoReply>> requests;
  for (int number = 0; number < 5000; ++number)
    requests.push_back(client->echoAsync("x"));
  agent.waitUntilSent(64);
  // The agent still has requests that were given up, so they make no room.
  for (int number = 0; number < 10; ++number)
    requests[static_cast<std::size_t>(number)].cancel();
  static_cast<void>(requests[9].wait());
  EXPECT_EQ(agent.sent().size(), 64u);
  agent.release();
  for (const auto &request : requests)
    static_cast<void>(request.wait());
  EXPECT_EQ(agent.sent().size(), 5000u);
  EXPECT_EQ(agent.mostHeld(), 64u);
}

TEST_F(RequestTest, waitsInTheClientWhereTooMuchIsOnItsWay) {
  agent.hold();
  std::vector<Request<EchoReply>> requests;
  for (int number = 0; number < 4; ++number)
    requests.push_back(client->echoAsync(std::string(3 << 20, 'x')));
  requests.push_back(client->echoAsync(std::string(9 << 20, 'x')));
  letItSendAllThatItMay();
  EXPECT_EQ(agent.sent().size(), 2u);
  agent.release();
  for (const auto &request : requests)
    EXPECT_TRUE(request.wait().hasReply());
  EXPECT_EQ(agent.mostHeld(), 2u);
}

TEST_F(RequestTest, goesOnItsWayWhileThereIsRoomForAllOfItsBytes) {
  agent.hold();
  auto first = client->echoAsync(std::string(4 << 20, 'x'));
  auto second = client->echoAsync(std::string(4 << 20, 'x'));
  auto third = client->echoAsync("x");
  letItSendAllThatItMay();
  EXPECT_EQ(agent.sent().size(), 2u);
  agent.release();
  EXPECT_EQ(third.get().text, "x");
}

TEST_F(RequestTest, waitsInTheClientWhereOneOtherLeavesTooLittleRoom) {
  agent.hold();
  auto first = client->echoAsync(std::string(5 << 20, 'x'));
  auto second = client->slimBinaryWithPathAsync("/a", {"b", std::string(4 << 20, 'x')});
  letItSendAllThatItMay();
  EXPECT_EQ(agent.requests(), Strings{"Echo " + std::string(5 << 20, 'x')});
  agent.release();
  EXPECT_TRUE(second.get().isDone());
}

TEST_F(RequestTest, callsBackOnTheClientsThreadInOrder) {
  agent.hold();
  auto request = client->echoAsync("x");
  Strings called;
  std::thread::id thread;
  std::promise<void> done;
  request
      .then([&](const Result<EchoReply> &result) {
        thread = std::this_thread::get_id();
        called.push_back("first " + result.reply().text);
      })
      .then([&](const Result<EchoReply> &) {
        called.emplace_back("second");
        done.set_value();
      });
  agent.release();
  done.get_future().wait();
  EXPECT_EQ(called, (Strings{"first x", "second"}));
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(RequestTest, callsBackAtOnceWhenItHasEnded) {
  auto request = client->echoAsync("x");
  std::promise<void> callbacksAreDone;
  request.then([&](const auto &) { callbacksAreDone.set_value(); });
  callbacksAreDone.get_future().wait();
  // The reply to a later request shows that the thread is done with this one.
  static_cast<void>(client->echo("y"));
  std::thread::id thread;
  request.then([&](const auto &) { thread = std::this_thread::get_id(); });
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(RequestTest, canStartOthersFromACallback) {
  std::promise<Request<EchoReply>> started;
  client->echoAsync("x").then(
      [&](const auto &) { started.set_value(client->echoAsync("from the callback")); });
  EXPECT_EQ(started.get_future().get().get().text, "from the callback");
}

TEST_F(RequestTest, cannotBeWaitedForInACallback) {
  agent.hold(); // or the callback might be called here
  std::promise<bool> refused;
  client->echoAsync("x").then([&](const auto &) {
    try {
      static_cast<void>(client->echo("never"));
      refused.set_value(false);
    } catch (const std::logic_error &) {
      refused.set_value(true);
    }
  });
  agent.release();
  EXPECT_TRUE(refused.get_future().get());
}

TEST_F(RequestTest, isNeverSentWhenItIsGivenUpInTime) {
  agent.hold();
  std::vector<Request<EchoReply>> others;
  for (int number = 0; number < 64; ++number)
    others.push_back(client->echoAsync("other"));
  auto request = client->echoAsync("x");
  agent.waitUntilSent(64);
  request.cancel();
  expectFailure(request, ClientError::Kind::Cancelled, ClientError::Effect::None);
  agent.release();
  EXPECT_EQ(client->echo("last").text, "last");
  EXPECT_EQ(agent.sent().size(), 65u);
}

TEST_F(RequestTest, saysThatTheAgentGoesOnWhenItIsGivenUpLate) {
  agent.hold();
  auto request = client->echoAsync("x");
  agent.waitUntilSent(1);
  request.cancel();
  expectFailure(request, ClientError::Kind::Cancelled, ClientError::Effect::Unknown);
  request.cancel(); // once more does no harm
  agent.release();
  EXPECT_EQ(client->echo("next").text, "next") << "the late reply goes to nobody";
}

TEST_F(RequestTest, leavesNoDeadlineToWaitForWhenItIsGivenUpLate) {
  agent.hold();
  auto request = client->echoAsync("x", {std::chrono::hours(1)});
  agent.waitUntilSent(1);
  request.cancel();
  expectFailure(request, ClientError::Kind::Cancelled, ClientError::Effect::Unknown);
  agent.waitUntilIdle();
}

TEST_F(RequestTest, keepsItsReplyWhenItIsGivenUpAfterwards) {
  auto request = client->echoAsync("x");
  static_cast<void>(request.wait());
  request.cancel();
  static_cast<void>(client->echo("y"));
  EXPECT_EQ(request.get().text, "x");
}

TEST_F(RequestTest, endsWhenItsTimeHasPassed) {
  agent.hold();
  auto unsent = client->echoAsync("x", atOnce);
  expectFailure(unsent, ClientError::Kind::DeadlinePassed, ClientError::Effect::None);
  expectFailure(sentAndLate(), ClientError::Kind::DeadlinePassed, ClientError::Effect::Unknown);
  agent.release();
  EXPECT_EQ(client->echo("next", {milliseconds::max()}).text, "next");
}

TEST_F(RequestTest, isNotCancelledAfterItsTime) {
  agent.hold();
  sentAndLate().cancel();
  letItSendAllThatItMay();
  EXPECT_EQ(agent.cancelsAsked(), 0u);
}

TEST_F(RequestTest, hasEndedWhenTheAgentRefusesToCancelItAfterItsTime) {
  agent.hold();
  agent.refuseToCancelLater();
  Request<EchoReply> request;
  // On a busy machine a short time may pass before the cancellation.
  for (milliseconds time(10); agent.cancelsAsked() == 0; time *= 2) {
    agent.forget();
    request = client->echoAsync("x", {time});
    while (agent.sent().empty() && !request.isEnded())
      std::this_thread::yield();
    request.cancel();
    static_cast<void>(request.wait());
  }
  expectFailure(request, ClientError::Kind::DeadlinePassed, ClientError::Effect::Unknown);
  agent.release();
  EXPECT_EQ(client->echo("next").text, "next");
}

TEST_F(RequestTest, letsItsThreadRestWhileTheAgentHasIt) {
  agent.hold();
  auto request = client->echoAsync("x");
  agent.waitUntilSent(1);
  agent.waitUntilIdle();
  EXPECT_FALSE(request.isEnded());
  agent.release();
  EXPECT_EQ(request.get().text, "x");
}

TEST_F(RequestTest, isInterruptedWhenItsConnectionEnds) {
  agent.hold();
  auto sent = client->echoAsync("sent");
  agent.waitUntilSent(1);
  agent.breakConnection();
  expectFailure(sent, ClientError::Kind::Interrupted, ClientError::Effect::Unknown);
  agent.release();
  EXPECT_EQ(client->echo("over another").text, "over another");
  EXPECT_EQ(agent.connections(), 2);
}

TEST_F(RequestTest, goesOverAnotherConnectionWhenItWasNotSent) {
  agent.failNextSends(1);
  EXPECT_EQ(client->echo("x").text, "x");
  EXPECT_EQ(agent.connections(), 2);
  EXPECT_EQ(agent.sent().size(), 1u) << "it is sent once";
}

TEST_F(RequestTest, isNotTriedForEver) {
  agent.failNextSends(1000);
  expectFailure(client->echoAsync("x"), ClientError::Kind::Unreachable, ClientError::Effect::None);
  EXPECT_EQ(agent.connections(), 2);
}

TEST_F(RequestTest, isUnreachableWithAllWaitingRequestsWhenThereIsNoBus) {
  agent.hold();
  std::vector<Request<EchoReply>> requests;
  for (int number = 0; number < 100; ++number)
    requests.push_back(client->echoAsync("x"));
  agent.waitUntilSent(64);
  agent.refuseConnections();
  agent.breakConnection();
  int interrupted = 0;
  int unreachable = 0;
  for (const auto &request : requests) {
    ClientError::Kind kind = request.wait().error()->kind();
    interrupted += kind == ClientError::Kind::Interrupted;
    unreachable += kind == ClientError::Kind::Unreachable;
  }
  EXPECT_EQ(interrupted, 64);
  EXPECT_EQ(unreachable, 36);
  agent.refuseConnections(false);
  agent.release();
  EXPECT_EQ(client->echo("again").text, "again");
}

TEST_F(RequestTest, isUnreachableWithoutMemoryForAnotherConnection) {
  agent.leaveNoMemoryForConnecting();
  agent.failNextSends(1);
  expectFailure(client->echoAsync("x"), ClientError::Kind::Unreachable, ClientError::Effect::None);
  agent.leaveNoMemoryForConnecting(false);
  EXPECT_EQ(client->echo("again").text, "again");
}

class UnacceptedConnection : public RequestTest {
protected:
  void SetUp() override {
    static_cast<void>(client->echo("x"));
    agent.acceptConnections(false);
    agent.failNextSends(1);
    first = client->echoAsync("first");
    second = client->echoAsync("second");
    // The engine takes requests in order, so it has both when this one has ended.
    expectFailure(client->echoAsync("third", atOnce), ClientError::Kind::DeadlinePassed,
                  ClientError::Effect::None);
    while (agent.connections() < 2)
      std::this_thread::yield();
    agent.forget();
  }

  // A later request goes over another connection.
  void expectBothUnreachable() {
    expectFailure(first, ClientError::Kind::Unreachable, ClientError::Effect::None);
    expectFailure(second, ClientError::Kind::Unreachable, ClientError::Effect::None);
    agent.acceptConnections();
    EXPECT_EQ(client->echo("again").text, "again");
  }

  Request<EchoReply> first, second;
};

TEST_F(UnacceptedConnection, carriesRequestsOnceItIsAccepted) {
  EXPECT_FALSE(first.waitFor(milliseconds(10)));
  EXPECT_TRUE(agent.sent().empty());
  agent.acceptConnections();
  EXPECT_EQ(first.get().text, "first");
  EXPECT_EQ(second.get().text, "second");
  EXPECT_EQ(agent.connections(), 2);
}

TEST_F(UnacceptedConnection, keepsNoRequestBeyondItsTime) {
  expectFailure(client->echoAsync("x", {milliseconds(10)}), ClientError::Kind::DeadlinePassed,
                ClientError::Effect::None);
  second.cancel();
  expectFailure(second, ClientError::Kind::Cancelled, ClientError::Effect::None);
}

TEST_F(UnacceptedConnection, failsAllRequestsWhenItEnds) {
  agent.breakConnection();
  expectBothUnreachable();
  EXPECT_EQ(agent.connections(), 3);
}

TEST_F(UnacceptedConnection, carriesTheOtherRequestWhenThereIsNoMemoryToSendTheFirst) {
  agent.leaveNoMemoryForNextSend();
  agent.acceptConnections();
  expectFailure(first, ClientError::Kind::Unreachable, ClientError::Effect::None);
  EXPECT_EQ(second.get().text, "second");
}

TEST_F(UnacceptedConnection, failsAllRequestsWhenMemoryRunsOut) {
  agent.runOutOfMemory();
  expectBothUnreachable();
}

TEST_F(UnacceptedConnection, doesNotOutliveTheClient) {
  client.reset();
  expectFailure(first, ClientError::Kind::Cancelled, ClientError::Effect::None);
}

TEST_F(RequestTest, endsWithTheClient) {
  agent.hold();
  std::vector<Request<EchoReply>> requests;
  for (int number = 0; number < 65; ++number)
    requests.push_back(client->echoAsync("x"));
  agent.waitUntilSent(64);
  std::atomic<int> called = 0;
  requests[0].then([&](const auto &) { ++called; });
  client.reset();
  EXPECT_EQ(called, 1);
  expectFailure(requests[0], ClientError::Kind::Cancelled, ClientError::Effect::Unknown);
  expectFailure(requests[64], ClientError::Kind::Cancelled, ClientError::Effect::None);
  requests[0].cancel();
}

TEST_F(RequestTest, mayLetGoOfTheClientInACallback) {
  agent.hold();
  auto other = client->echoAsync("x");
  std::promise<void> gone;
  client->echoAsync("y").then([&](const auto &) {
    client.reset();
    gone.set_value();
  });
  agent.waitUntilSent(2);
  other.cancel();
  agent.release();
  gone.get_future().wait();
  EXPECT_TRUE(other.isEnded());
}

TEST_F(RequestTest, outlivesItsHandle) {
  agent.hold();
  static_cast<void>(client->echoAsync("x"));
  agent.waitUntilSent(1);
  agent.release();
  EXPECT_EQ(client->echo("y").text, "y");
}

TEST_F(RequestTest, keepsAChunkOfProgressFromOthers) {
  agent.hold();
  Strings first;
  Strings second;
  auto forgotten = client->repairPermissionsAsync([&](const auto &text) { first.push_back(text); });
  auto echo = client->echoAsync("between");
  auto repair = client->repairPermissionsAsync([&](const auto &text) { second.push_back(text); });
  agent.waitUntilSent(3);
  forgotten.cancel();
  static_cast<void>(forgotten.wait());
  agent.sendProgress("of the one that was given up");
  agent.release();
  static_cast<void>(repair.wait());
  EXPECT_EQ(first, Strings());
  EXPECT_EQ(second, Strings());
}

TEST_F(RequestTest, hasProgressThoughARequestWithoutAnyIsBeforeIt) {
  agent.hold();
  Strings chunks;
  auto echo = client->echoAsync("before");
  auto repair = client->repairPermissionsAsync([&](const auto &text) { chunks.push_back(text); });
  agent.waitUntilSent(2);
  agent.sendProgress("of the repair");
  agent.release();
  static_cast<void>(repair.wait());
  EXPECT_EQ(chunks, Strings{"of the repair"});
}

TEST_F(RequestTest, serveManyThreads) {
  std::vector<std::thread> threads;
  std::atomic<int> right = 0;
  for (int thread = 0; thread < 8; ++thread)
    threads.emplace_back([&, thread] {
      for (int number = 0; number < 200; ++number) {
        std::string text = std::to_string(thread) + "/" + std::to_string(number);
        auto request = client->echoAsync(text);
        if (number % 10 == 0)
          request.cancel();
        const auto &result = request.wait();
        right += !result.hasReply() || result.reply().text == text;
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(right, 8 * 200);
}

TEST(Request, ofNothingSaysSo) {
  Request<EchoReply> request;
  EXPECT_FALSE(request.isValid());
  EXPECT_THROW(static_cast<void>(request.wait()), std::logic_error);
  EXPECT_THROW(request.cancel(), std::logic_error);
}

} // namespace
