// The rights of callbacks, and failures of callbacks that must stay without
// effect; without a bus.
#include "Client/Client.h"

#include "Support/FakeAgent.h"

#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <thread>

namespace {

using kw::Client;
using kw::ClientError;
using kw::EchoReply;
using kw::Request;
using kw::Result;
using Strings = std::vector<std::string>;

// Keeps the client's thread in a callback, so that it finds the requests
// started and cancelled meanwhile all at once.
class Pause {
public:
  Pause(Client &client, kwtest::FakeAgent &agent) {
    agent.hold(); // or the callback might be called here
    client.echoAsync("pause").then([this](const auto &) {
      begun_.set_value();
      over_.get_future().wait();
    });
    agent.release();
    begun_.get_future().wait();
  }
  void end() { over_.set_value(); }

private:
  std::promise<void> begun_, over_;
};

class CallbackTest : public testing::Test {
protected:
  static std::string textOf(const std::exception_ptr &exception) {
    try {
      std::rethrow_exception(exception);
    } catch (const std::exception &error) {
      return error.what();
    }
  }
  // Starts anew with a client that records exceptions of callbacks.
  void noteExceptions() {
    client.reset();
    client = agent.client({false, [this](const std::exception_ptr &exception) {
                             thrown.push_back(textOf(exception));
                           }});
  }

  Strings thrown;
  kwtest::FakeAgent agent;
  std::unique_ptr<Client> client = agent.client();
};

TEST_F(CallbackTest, mustBeThere) {
  auto request = client->echoAsync("x");
  EXPECT_THROW(request.then(nullptr), std::invalid_argument);
  static_cast<void>(request.wait());
  EXPECT_THROW(request.then(nullptr), std::invalid_argument);
}

TEST_F(CallbackTest, keepsNoOtherFromBeingCalledWhenItThrows) {
  noteExceptions();
  agent.hold();
  auto first = client->echoAsync("first");
  auto second = client->echoAsync("second");
  Strings called;
  std::promise<void> done;
  first.then([](const auto &) { throw std::runtime_error("one"); }).then([&](const auto &) {
    called.emplace_back("first");
  });
  second.then([](const auto &) { throw std::runtime_error("two"); }).then([&](const auto &) {
    called.emplace_back("second");
    done.set_value();
  });
  agent.release();
  done.get_future().wait();
  EXPECT_EQ(called, (Strings{"first", "second"}));
  EXPECT_EQ(thrown, (Strings{"one", "two"}));
  EXPECT_EQ(client->echo("still here").text, "still here");
}

TEST_F(CallbackTest, doesNotThrowIntoACallerThatHasItCalledAtOnce) {
  noteExceptions();
  auto request = client->echoAsync("x");
  static_cast<void>(request.wait());
  static_cast<void>(client->echo("y"));
  request.then([](const auto &) { throw std::runtime_error("at once"); });
  EXPECT_EQ(thrown, Strings{"at once"});
}

TEST_F(CallbackTest, mayThrowFromProgress) {
  noteExceptions();
  agent.setChunks({"one", "two"});
  kw::RepairReply reply =
      client->repairPermissions([](const std::string &text) { throw std::runtime_error(text); });
  EXPECT_EQ(reply.attempt, kw::Attempt::Made);
  EXPECT_EQ(thrown, (Strings{"one", "two"}));
}

TEST_F(CallbackTest, isReportedOnStandardErrorWithoutAHandlerForItsException) {
  auto request = client->echoAsync("x");
  static_cast<void>(request.wait());
  static_cast<void>(client->echo("y"));
  testing::internal::CaptureStderr();
  request.then([](const auto &) { throw std::runtime_error("unhandled"); });
  request.then([](const auto &) { throw 7; });
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "libkeepwell: a callback threw an exception: unhandled\n"
            "libkeepwell: a callback threw an exception\n");
}

TEST_F(CallbackTest, mayHaveAHandlerThatThrows) {
  client.reset();
  client =
      agent.client({false, [](const std::exception_ptr &) { throw std::runtime_error("worse"); }});
  auto request = client->echoAsync("x");
  static_cast<void>(request.wait());
  static_cast<void>(client->echo("y"));
  testing::internal::CaptureStderr();
  request.then([](const auto &) { throw std::runtime_error("bad"); });
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "libkeepwell: a callback threw an exception: worse\n");
}

TEST_F(CallbackTest, mayStartRequestsWhileTheClientGoes) {
  agent.hold();
  auto request = client->echoAsync("x");
  agent.waitUntilSent(1);
  Client *going = client.get();
  Request<EchoReply> second, third;
  bool wasCalled = false;
  request.then([&](const auto &) {
    second = going->echoAsync("second");
    second.then([&](const auto &) {
      third = going->echoAsync("third");
      third.then([&](const auto &) { wasCalled = true; });
    });
  });
  client.reset();
  EXPECT_TRUE(wasCalled);
  for (const auto &late : {second, third}) {
    ASSERT_TRUE(late.isEnded());
    ASSERT_NE(late.wait().error(), nullptr);
    EXPECT_EQ(late.wait().error()->kind(), ClientError::Kind::Cancelled);
    EXPECT_EQ(late.wait().error()->effect(), ClientError::Effect::None);
  }
  EXPECT_EQ(agent.sent().size(), 1u);
}

TEST_F(CallbackTest, cancelsAnotherBeforeItIsSent) {
  Pause pause(*client, agent);
  auto expiring = client->echoAsync("expiring", {std::chrono::milliseconds(0)});
  auto given = client->echoAsync("given up");
  auto first = client->echoAsync("first");
  auto second = client->echoAsync("second");
  expiring.then([&](const auto &) { first.cancel(); });
  given.then([&](const auto &) { second.cancel(); });
  given.cancel();
  pause.end();
  for (const auto &request : {first, second}) {
    const ClientError *error = request.wait().error();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->kind(), ClientError::Kind::Cancelled);
    EXPECT_EQ(error->effect(), ClientError::Effect::None);
  }
  EXPECT_EQ(client->echo("last").text, "last");
  EXPECT_EQ(agent.requests(), (Strings{"Echo pause", "Echo last"}));
}

// Nothing but this request wakes the client's thread then.
TEST_F(CallbackTest, startsARequestWhenTheTimeOfAnotherHasPassed) {
  Pause pause(*client, agent);
  std::promise<Request<EchoReply>> started;
  client->echoAsync("late", {std::chrono::milliseconds(0)}).then([&](const auto &) {
    started.set_value(client->echoAsync("next"));
  });
  pause.end();
  EXPECT_EQ(started.get_future().get().get().text, "next");
}

TEST_F(CallbackTest, isCalledWithAllSignalsBlocked) {
  sigset_t before, inside, after;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &before);
  client.reset();
  client = agent.client();
  ::pthread_sigmask(SIG_BLOCK, nullptr, &after);
  agent.hold();
  auto request = client->echoAsync("x");
  std::promise<void> done;
  request.then([&](const auto &) {
    ::pthread_sigmask(SIG_BLOCK, nullptr, &inside);
    done.set_value();
  });
  agent.release();
  done.get_future().wait();
  for (int signal = 1; signal < NSIG; ++signal) {
    EXPECT_EQ(::sigismember(&after, signal), ::sigismember(&before, signal)) << signal;
    bool isOfTheCLibrary = signal > SIGSYS && signal < SIGRTMIN;
    bool canBeBlocked = signal != SIGKILL && signal != SIGSTOP && !isOfTheCLibrary;
    EXPECT_EQ(::sigismember(&inside, signal), canBeBlocked) << signal;
  }
}

} // namespace
