// The outcome and the progress of requests that are cancelled when the agent
// has them; without a bus.
#include "Client/Client.h"

#include "Support/FakeAgent.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace {

using kw::Client;
using kw::ClientError;
using kw::RequestProgress;
using Strings = std::vector<std::string>;

const kw::RequestOptions atOnce{std::chrono::milliseconds(0)};

class CancellationTest : public testing::Test {
protected:
  template <typename Reply>
  static void expectCancelled(const kw::Request<Reply> &request, ClientError::Effect effect) {
    const ClientError *error = request.wait().error();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->kind(), ClientError::Kind::Cancelled) << error->what();
    EXPECT_EQ(error->effect(), effect);
  }
  // Has the agent answer the request just before it is asked to cancel it.
  template <typename Reply>
  void cancelTooLate(const kw::Request<Reply> &request, const NS::XPCValues &answer) {
    whileTheThreadIsBusy([&] {
      agent.setHandler([answer](const kw::AgentMessage &) { return answer; });
      agent.release();
      request.cancel();
    });
    agent.waitUntilAskedToCancel(1);
  }
  // The client's thread then finds all of the work done at once.
  template <typename Work> void whileTheThreadIsBusy(Work work) {
    agent.sendAdvance({});
    begun_.get_future().wait();
    work();
    over_.set_value();
  }
  // A request with these keeps the client's thread busy from the first report
  // of its progress on.
  kw::RequestOptions paused() {
    kw::RequestOptions options;
    options.progress = [this](const RequestProgress &) {
      begun_.set_value();
      over_.get_future().wait();
    };
    return options;
  }

  kwtest::FakeAgent agent;
  std::unique_ptr<Client> client = agent.client();
  NS::Error cancelled{NS::CocoaErrorDomain, 3072};

private:
  std::promise<void> begun_, over_;
};

TEST_F(CancellationTest, endsWithTheAgentsAnswer) {
  agent.learnToCancel();
  agent.hold();
  auto removal = client->removeItemAtPathAsync("/a");
  auto size = client->sizeOfItemAtPathAsync("/a");
  auto trash = client->moveToTrashItemAtPathAsync("/a");
  auto other = client->echoAsync("other");
  agent.waitUntilSent(4);
  removal.cancel();
  size.cancel();
  trash.cancel();
  expectCancelled(removal, ClientError::Effect::Unknown);
  expectCancelled(size, ClientError::Effect::Unknown);
  expectCancelled(trash, ClientError::Effect::Unknown);
  EXPECT_FALSE(other.isEnded());
  agent.release();
  EXPECT_EQ(other.get().text, "other");
}

TEST_F(CancellationTest, tellsOfARemovalThatHasHappened) {
  agent.learnToCancel();
  agent.hold();
  auto removal = client->removeItemAtPathAsync("/a", paused());
  agent.waitUntilSent(1);
  cancelTooLate(removal, {true, std::monostate()});
  EXPECT_TRUE(removal.get().isDone());
}

// The first attempt was stopped, and yet the item is gone.
TEST_F(CancellationTest, believesTheFlagRatherThanTheErrorBesideIt) {
  agent.learnToCancel();
  agent.hold();
  auto removal = client->removeItemAtPathAsync("/a", paused());
  agent.waitUntilSent(1);
  cancelTooLate(removal, {true, cancelled});
  EXPECT_TRUE(removal.get().isDone());
}

TEST_F(CancellationTest, knowsTheFlagOfTheTrash) {
  agent.learnToCancel();
  agent.hold();
  auto trash = client->moveToTrashItemAtPathAsync("/a", paused());
  agent.waitUntilSent(1);
  cancelTooLate(trash, {false, cancelled});
  EXPECT_TRUE(trash.get().isDone());
}

TEST_F(CancellationTest, keepsAFailureOfAnotherKind) {
  agent.learnToCancel();
  agent.hold();
  auto removal = client->removeItemAtPathAsync("/a", paused());
  agent.waitUntilSent(1);
  cancelTooLate(removal, {false, NS::Error(NS::CocoaErrorDomain, 513)});
  kw::RemovalReply reply = removal.get();
  EXPECT_FALSE(reply.isDone());
  EXPECT_EQ(reply.error->code(), 513);
}

// A failure from before the cancelling reads the same, but for its time.
TEST_F(CancellationTest, isNotReadIntoAShreddingThatHadFailedBefore) {
  agent.learnToCancel();
  agent.hold();
  auto shredding = client->securelyRemoveItemAtPathAsync("/a", paused());
  agent.waitUntilSent(1);
  cancelTooLate(shredding, {false, std::monostate()});
  EXPECT_FALSE(shredding.get().isDone());
}

TEST_F(CancellationTest, isNotReadIntoTheReplyOfARequestThatWasNotCancelled) {
  agent.setHandler([this](const kw::AgentMessage &) { return NS::XPCValues{false, cancelled}; });
  EXPECT_EQ(client->removeItemAtPath("/a").error->code(), 3072);
}

TEST_F(CancellationTest, isAskedForOnce) {
  agent.hold();
  agent.learnToCancel();
  auto request = client->echoAsync("x");
  agent.waitUntilSent(1);
  agent.breakConnection(); // so that there is no answer
  request.cancel();
  request.cancel();
  EXPECT_FALSE(request.wait().hasReply());
}

TEST_F(CancellationTest, isAskedForOnceWhenAllRequestsAreToBeCancelledToo) {
  agent.learnToCancel();
  agent.hold();
  auto request = client->echoAsync("x", paused());
  agent.waitUntilSent(1);
  whileTheThreadIsBusy([&] {
    request.cancel();
    client->cancelAll();
  });
  expectCancelled(request, ClientError::Effect::Unknown);
  EXPECT_EQ(agent.cancelsAsked(), 1u);
}

// Nothing but the cancellation wakes the client's thread then.
TEST_F(CancellationTest, canComeWhenTheTimeOfAnotherRequestHasPassed) {
  agent.learnToCancel();
  agent.hold();
  auto request = client->echoAsync("x", paused());
  agent.waitUntilSent(1);
  whileTheThreadIsBusy(
      [&] { client->echoAsync("late", atOnce).then([&](const auto &) { request.cancel(); }); });
  expectCancelled(request, ClientError::Effect::Unknown);
}

TEST_F(CancellationTest, ofAllCanComeWhenTheTimeOfAnotherRequestHasPassed) {
  agent.learnToCancel();
  agent.hold();
  auto request = client->echoAsync("x", paused());
  agent.waitUntilSent(1);
  kw::Request<kw::EchoReply> unsent;
  whileTheThreadIsBusy([&] {
    client->echoAsync("late", atOnce).then([&](const auto &) { client->cancelAll(); });
    unsent = client->echoAsync("y");
  });
  expectCancelled(request, ClientError::Effect::Unknown);
  expectCancelled(unsent, ClientError::Effect::None);
}

TEST_F(CancellationTest, findsTheConnectionEnded) {
  agent.hold();
  agent.failCancels();
  auto request = client->echoAsync("x");
  agent.waitUntilSent(1);
  request.cancel();
  const ClientError *error = request.wait().error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->kind(), ClientError::Kind::Interrupted) << error->what();
  agent.release();
  EXPECT_EQ(client->echo("over another").text, "over another");
}

TEST_F(CancellationTest, endsTheWaitWithoutMemoryToAskForIt) {
  agent.hold();
  agent.leaveNoMemoryForCancelling();
  auto request = client->echoAsync("x");
  agent.waitUntilSent(1);
  request.cancel();
  agent.waitUntilAskedToCancel(1);
  agent.release();
  expectCancelled(request, ClientError::Effect::Unknown);
}

TEST_F(CancellationTest, ofAllWakesWaitingThreads) {
  agent.learnToCancel();
  agent.hold();
  auto removal = std::async(std::launch::async, [&] { return client->removeItemAtPath("/a"); });
  agent.waitUntilSent(1);
  std::vector<kw::Request<kw::EchoReply>> requests;
  for (int number = 0; number < 100; ++number)
    requests.push_back(client->echoAsync("x"));
  agent.waitUntilSent(64);
  client->cancelAll();
  auto later = client->echoAsync("later");
  EXPECT_THROW(removal.get(), ClientError);
  for (std::size_t number = 0; number < requests.size(); ++number)
    expectCancelled(requests[number],
                    number < 63 ? ClientError::Effect::Unknown : ClientError::Effect::None);
  agent.waitUntilSent(65);
  agent.release();
  EXPECT_EQ(later.get().text, "later");
  EXPECT_EQ(agent.sent().size(), 65u);
}

TEST_F(CancellationTest, leavesTheTimeLimitAsItIs) {
  agent.hold();
  agent.learnToCancel();
  auto request = client->echoAsync("x", {std::chrono::milliseconds::max()});
  agent.waitUntilSent(1);
  request.cancel();
  expectCancelled(request, ClientError::Effect::Unknown);
}

TEST_F(CancellationTest, letsARequestBeFollowed) {
  agent.hold();
  std::vector<std::string> paths;
  kw::RequestOptions followed;
  followed.progress = [&](const RequestProgress &progress) {
    paths.push_back(std::to_string(progress.items) + " " + std::to_string(progress.bytes) + " " +
                    progress.path);
  };
  auto plain = client->sizeOfItemAtPathAsync("/plain");
  auto request = client->sizeOfItemAtPathAsync("/a", followed);
  agent.waitUntilSent(2);
  EXPECT_FALSE(agent.sent()[0].isFollowed);
  EXPECT_TRUE(agent.sent()[1].isFollowed);
  agent.sendAdvance({1, 2, "/a/b"});
  agent.sendAdvance({3, 4, "/a/c"});
  agent.release();
  static_cast<void>(request.wait());
  EXPECT_EQ(paths, (Strings{"1 2 /a/b", "3 4 /a/c"}));
}

TEST_F(CancellationTest, canComeFromTheProgress) {
  agent.learnToCancel();
  agent.hold();
  kw::RequestOptions followed;
  followed.progress = [&](const RequestProgress &) { client->cancelAll(); };
  auto removal =
      std::async(std::launch::async, [&] { return client->removeItemAtPath("/a", followed); });
  agent.waitUntilSent(1);
  agent.sendAdvance({1, 2, "/a/b"});
  EXPECT_THROW(removal.get(), ClientError);
}

} // namespace
