// The queue between a transport's threads and the owner of a connection.
#include "Client/AgentArrivals.h"

#include "Support/ThreadState.h"

#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using kw::AgentArrivals;
using kw::ClientError;
using testing::ElementsAre;

struct Receiver : kw::AgentConnection::Receiver {
  using Number = kw::AgentConnection::Number;

  void received(Number number, NS::XPCValues) override { numbers.push_back(number); }
  void failed(Number, const ClientError &) override {}
  void progressed(const std::string &) override {}
  void advanced(Number, const kw::RequestProgress &) override {}
  void isBeingCancelled(Number) override {}
  void couldNotCancel(Number) override {}

  std::vector<Number> numbers;
};

class AgentArrivalsTest : public testing::Test {
protected:
  void add(Receiver::Number number) {
    arrivals.add([number](kw::AgentConnection::Receiver &each) { each.received(number, {}); });
  }
  // Waits in another thread, and returns when that thread is asleep.
  std::future<void> waitElsewhere() {
    std::atomic<int> thread = 0;
    auto waiting = std::async(std::launch::async, [this, &thread] {
      thread = ::gettid();
      arrivals.wait(receiver, std::nullopt);
    });
    while (thread == 0 || !kwtest::isAsleep(thread))
      std::this_thread::yield();
    return waiting;
  }
  // Without waiting.
  void take() { arrivals.wait(receiver, AgentArrivals::Clock::now()); }

  AgentArrivals arrivals;
  Receiver receiver;
};

TEST_F(AgentArrivalsTest, areHandedOverInTheirOrderOnce) {
  add(1);
  add(2);
  take();
  take();
  EXPECT_THAT(receiver.numbers, ElementsAre(1, 2));
}

TEST_F(AgentArrivalsTest, mayAddOthers) {
  arrivals.add([this](kw::AgentConnection::Receiver &) { add(3); });
  take();
  EXPECT_TRUE(receiver.numbers.empty());
  take();
  EXPECT_THAT(receiver.numbers, ElementsAre(3));
}

TEST_F(AgentArrivalsTest, areWaitedFor) {
  auto waiting = waitElsewhere();
  add(1);
  waiting.get();
  EXPECT_THAT(receiver.numbers, ElementsAre(1));
}

TEST_F(AgentArrivalsTest, letAWaitReturnThatIsWoken) {
  arrivals.wake();
  arrivals.wait(receiver, std::nullopt);
  auto waiting = waitElsewhere();
  arrivals.wake();
  waiting.get();
}

TEST_F(AgentArrivalsTest, areWokenOnceByOneCall) {
  arrivals.wake();
  take();
  auto until = AgentArrivals::Clock::now() + 20ms;
  arrivals.wait(receiver, until);
  EXPECT_GE(AgentArrivals::Clock::now(), until);
}

TEST_F(AgentArrivalsTest, comeBeforeTheEndOfTheConnection) {
  add(1);
  arrivals.end(ClientError(ClientError::Kind::Unreachable, "first", ""));
  arrivals.end(ClientError(ClientError::Kind::Interrupted, "second", ""));
  add(2);
  take();
  EXPECT_THAT(receiver.numbers, ElementsAre(1));
  for (int times = 0; times < 2; ++times)
    try {
      arrivals.wait(receiver, std::nullopt);
      FAIL() << "the connection has ended";
    } catch (const ClientError &error) {
      EXPECT_EQ(error.name(), "first");
    }
  EXPECT_THAT(receiver.numbers, ElementsAre(1));
}

TEST_F(AgentArrivalsTest, endAWait) {
  auto waiting = waitElsewhere();
  arrivals.end(ClientError(ClientError::Kind::Unreachable, "end", ""));
  EXPECT_THROW(waiting.get(), ClientError);
}

} // namespace
