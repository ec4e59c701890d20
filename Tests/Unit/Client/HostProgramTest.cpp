// The client in a program that is short of memory or descriptors, that forks,
// and whose threads come and go.
#include "Client/Client.h"

#include "Support/Allocations.h"
#include "Support/FakeAgent.h"
#include "Support/ForkedChild.h"
#include "Support/PrivateBus.h"
#include "Support/Sanitizers.h"
#include "Support/StandInAgent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <future>
#include <new>
#include <optional>
#include <sys/resource.h>
#include <thread>

namespace {

using kw::Client;
using kw::ClientError;
using kwtest::StandInAgent;

class HostProgramTest : public testing::Test {
protected:
  void SetUp() override {
    if (!bus.isRunning())
      GTEST_SKIP() << "no dbus-daemon";
    client = Client::connect(bus.address());
  }
  // Does it on the client's thread, and waits until it is done.
  void onTheClientsThread(const std::function<void()> &what) {
    bool isDone = false;
    kw::RequestOptions options;
    options.progress = [&](const kw::RequestProgress &) {
      if (!std::exchange(isDone, true))
        what();
    };
    do
      static_cast<void>(client->removeItemAtPathAsync("/a", options).wait());
    while (!isDone);
  }

  kwtest::PrivateBus bus;
  std::unique_ptr<Client> client;
};

TEST_F(HostProgramTest, mayRunOutOfMemoryAnywhere) {
  StandInAgent agent(bus.address());
  bool isThrough = false;
  int failures = 0;
  for (int after = 0; !isThrough && after < 500; ++after) {
    onTheClientsThread([after] { kwtest::allocationsLeft() = after; });
    std::vector<kw::Request<kw::EchoReply>> requests;
    for (int number = 0; number < 3; ++number)
      requests.push_back(client->echoAsync("a text that is too long to stand in the string"));
    auto flush = client->flushDNSAsync();
    auto move = client->moveItemAtPathAsync("/a", "/b");
    for (const auto &request : requests)
      failures += !request.wait().hasReply();
    EXPECT_NE(flush.wait().error(), nullptr);
    failures += !move.wait().hasReply();
    onTheClientsThread([&] {
      isThrough = kwtest::allocationsLeft().has_value();
      kwtest::allocationsLeft().reset();
    });
  }
  EXPECT_TRUE(isThrough);
  EXPECT_GT(failures, 0);
  EXPECT_EQ(client->echo("still here").text, "still here");
}

TEST_F(HostProgramTest, mayRunOutOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  StandInAgent agent(bus.address());
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  int lowestFree = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::close(lowestFree);
  rlimit none = before;
  none.rlim_cur = static_cast<rlim_t>(lowestFree);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  std::optional<ClientError::Kind> refused;
  try {
    static_cast<void>(Client::connect(bus.address()));
  } catch (const ClientError &error) {
    refused = error.kind();
  }
  bool isServed = client->echoAsync("x").wait().hasReply();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(refused, ClientError::Kind::Unreachable);
  EXPECT_TRUE(isServed);
  EXPECT_EQ(Client::connect(bus.address())->echo("y").text, "y");
}

std::string useInAChild(std::unique_ptr<Client> &client,
                        const kw::Request<kw::FlagReply> &request) {
  try {
    static_cast<void>(client->echo("never"));
    return "a request was started";
  } catch (const ClientError &error) {
    if (error.kind() != ClientError::Kind::Unreachable)
      return error.what();
  }
  try {
    static_cast<void>(request.wait());
    return "a request has ended";
  } catch (const std::logic_error &) {
  }
  client->cancelAll();
  client.reset();
  return "";
}

TEST_F(HostProgramTest, mayFork) {
  StandInAgent agent(bus.address());
  auto request = client->securelyRemoveItemAtPathAsync("/a");
  agent.waitUntilShredding();
  EXPECT_EQ(kwtest::inForkedChild([&] { return useInAChild(client, request); }), "");
  EXPECT_FALSE(request.isEnded());
  EXPECT_EQ(client->echo("still here").text, "still here");
}

TEST_F(HostProgramTest, mayAskAnewInAForkedChild) {
  if (kwtest::hasThreadSanitizer)
    GTEST_SKIP() << "the thread sanitizer lets a forked child start no threads";
  if (kwtest::hasAddressSanitizer)
    GTEST_SKIP() << "another thread may hold the lock of the address sanitizer's memory then";
  StandInAgent agent(bus.address());
  EXPECT_EQ(kwtest::inForkedChild(
                [&] { return Client::connect(bus.address())->echo("from the child").text; }),
            "from the child");
}

TEST(HostProgram, mayRunOutOfMemoryWhenTheConnectionEnds) {
  kwtest::FakeAgent agent;
  auto client = agent.client();
  agent.hold();
  kw::RequestOptions options;
  options.progress = [&](const kw::RequestProgress &) {
    agent.breakConnection();
    kwtest::allocationsLeft() = 0;
  };
  auto request = client->removeItemAtPathAsync("/a", options);
  agent.waitUntilSent(1);
  agent.sendAdvance({});
  const ClientError *error = request.wait().error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->kind(), ClientError::Kind::Interrupted);
  EXPECT_STREQ(error->what(), "no memory is left for the connection to the agent");
  agent.release();
  EXPECT_EQ(client->echo("over another").text, "over another");
}

TEST(HostProgram, mayDestroyClientsWhileTheirCallbacksRun) {
  std::atomic<int> ended = 0;
  constexpr int threadCount = 8, rounds = 50;
  std::vector<std::thread> threads;
  for (int number = 0; number < threadCount; ++number)
    threads.emplace_back([&] {
      kwtest::FakeAgent agent;
      agent.learnToCancel();
      for (int round = 0; round < rounds; ++round) {
        auto client = agent.client();
        Client *used = client.get();
        for (int each = 0; each < 4; ++each)
          used->echoAsync("x").then([&, used](const auto &result) {
            ++ended;
            if (!result.hasReply())
              return;
            auto next = used->echoAsync("y");
            next.then([&](const auto &) { ++ended; });
            next.cancel();
          });
        if (round % 2 == 0)
          used->cancelAll();
        client.reset();
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_GE(ended, threadCount * rounds * 4);
}

} // namespace
