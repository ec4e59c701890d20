// Blocks and change notices on the main thread, delayed blocks and the bounded
// wait for background work.
#include "Additions/NSObjectAdditions.h"

#include "Foundation/Base/Clock.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Threads/Dispatch.h"
#include "Foundation/Threads/Thread.h"
#include "Foundation/Values/KeyValueObserving.h"
#include "Support/AssertionRecorder.h"
#include "Support/FakeClock.h"
#include "Support/LogRecorder.h"
#include "Support/MainRunLoop.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

namespace {

using namespace std::chrono_literals;
using kwtest::runMainRunLoopUntil;
using kwtest::turnMainRunLoop;
using Lines = std::vector<std::string>;

class MainThread : public ::testing::Test {
protected:
  // Runs the work on a thread of its own while the main run loop runs.
  void elsewhere(const std::function<void()> &work) {
    bool over = false;
    std::thread thread([&] {
      work();
      NS::RunLoop::mainRunLoop().performBlock([&] { over = true; }, {NS::RunLoopCommonModes});
    });
    runMainRunLoopUntil([&] { return over; });
    thread.join();
  }

  kwtest::LogRecorder log;
  std::shared_ptr<NS::Object> sender = std::make_shared<NS::Object>();
  std::vector<std::string> ran; // main thread only
};

TEST_F(MainThread, runOnMainQueueCallsTheBlockAtOnceThere) {
  kw::runOnMainQueueSync(sender, [&] { ran.push_back("sync"); });
  kw::runOnMainQueueAsync(sender, [&] { ran.push_back("async"); });
  EXPECT_EQ(ran, (Lines{"sync", "async"}));
}

TEST_F(MainThread, runOnMainQueueLogsANilSenderAndGoesOnThere) {
  kw::runOnMainQueueSync(nullptr, [&] { ran.push_back("sync"); });
  kw::runOnMainQueueAsync(nullptr, [&] { ran.push_back("async"); });
  EXPECT_EQ(ran, (Lines{"sync", "async"}));
  EXPECT_EQ(log.lines(), (Lines{"runOnMainQueueSync: aSender could not be nil!",
                                "runOnMainQueueAsync: aSender could not be nil!"}));
}

TEST_F(MainThread, runOnMainQueueNeverRunsTheBlockOfANilSenderFromElsewhere) {
  elsewhere([&] {
    kw::runOnMainQueueSync(nullptr, [&] { ran.push_back("sync"); });
    kw::runOnMainQueueAsync(nullptr, [&] { ran.push_back("async"); });
  });
  EXPECT_FALSE(turnMainRunLoop());
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(log.lines(), (Lines{"runOnMainQueueSync: aSender could not be nil!",
                                "runOnMainQueueAsync: aSender could not be nil!"}));
}

TEST_F(MainThread, runOnMainQueueSyncFromElsewhereWaitsForTheBlock) {
  std::thread::id thread;
  bool wasDone = false;
  elsewhere([&] {
    bool done = false;
    kw::runOnMainQueueSync(sender, [&] {
      thread = std::this_thread::get_id();
      done = true;
    });
    wasDone = done;
  });
  EXPECT_EQ(thread, std::this_thread::get_id());
  EXPECT_TRUE(wasDone);
}

TEST_F(MainThread, runOnMainQueueAsyncFromElsewhereDoesNotWait) {
  // The loop does not run until the call has returned.
  std::thread([&] { kw::runOnMainQueueAsync(sender, [&] { ran.push_back("ran"); }); }).join();
  EXPECT_TRUE(ran.empty());
  turnMainRunLoop();
  EXPECT_EQ(ran, (Lines{"ran"}));
}

TEST_F(MainThread, runOnMainQueueSyncReturnsThoughTheBlockThrows) {
  elsewhere([&] { kw::runOnMainQueueSync(sender, [] { throw std::runtime_error("x"); }); });
  EXPECT_EQ(log.lines(), (Lines{"A run loop block raised: x"}));
}

TEST_F(MainThread, performBlockThereWithoutWaitingRunsItOnALaterTurn) {
  kw::performBlockOnMainThread(sender, [&] { ran.push_back("ran"); }, false,
                               {NS::RunLoopCommonModes});
  EXPECT_TRUE(ran.empty());
  turnMainRunLoop();
  EXPECT_EQ(ran, (Lines{"ran"}));
}

TEST_F(MainThread, performBlockThereWithWaitingRunsItAtOnceInAnyModes) {
  kw::performBlockOnMainThread(sender, [&] { ran.push_back("ran"); }, true, {"panel"});
  EXPECT_EQ(ran, (Lines{"ran"}));
}

TEST_F(MainThread, performBlockKeepsToTheModes) {
  kw::performBlockOnMainThread(sender, [&] { ran.push_back("ran"); }, false, {"panel"});
  EXPECT_FALSE(turnMainRunLoop());
  NS::RunLoop::mainRunLoop().runMode("panel", {});
  EXPECT_EQ(ran, (Lines{"ran"}));
}

TEST_F(MainThread, performBlockWithNoModesNeverRunsAndNeverWaits) {
  elsewhere([&] {
    kw::performBlockOnMainThread(sender, [&] { ran.push_back("ran"); }, true, {});
    kw::performBlockOnMainThread(sender, [&] { ran.push_back("ran"); }, false, {});
  });
  EXPECT_TRUE(ran.empty());
}

TEST_F(MainThread, performBlockOfANilReceiverGoesNowhere) {
  kw::performBlockOnMainThread(nullptr, [&] { ran.push_back("ran"); }, true, {"x"});
  kw::performBlock(
      nullptr, [&] { ran.push_back("ran"); }, kw::AfterDelay{0});
  kw::performBlock(
      nullptr, [&] { ran.push_back("ran"); }, kw::Timeout{5});
  EXPECT_FALSE(turnMainRunLoop());
  EXPECT_TRUE(ran.empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(MainThread, runsBlocksOfEightThreadsInOrderPerSender) {
  constexpr std::size_t senders = 8;
  constexpr int rounds = 500;
  std::array<std::vector<int>, senders> order; // main thread only
  std::array<std::atomic<int>, senders> done{};
  std::size_t threadsOver = 0;
  std::vector<std::thread> threads;
  for (std::size_t number = 0; number < senders; ++number)
    threads.emplace_back([&, number] {
      for (int round = 0; round < rounds; ++round) {
        auto block = [&order, &done, number, round] {
          order[number].push_back(round);
          ++done[number];
        };
        if (round % 3 != 0) {
          kw::runOnMainQueueAsync(sender, block);
          continue;
        }
        kw::runOnMainQueueSync(sender, block);
        EXPECT_EQ(done[number], round + 1) << "earlier blocks too";
      }
      kw::runOnMainQueueAsync(sender, [&threadsOver] { ++threadsOver; });
    });
  runMainRunLoopUntil([&] { return threadsOver == senders; });
  for (std::thread &thread : threads)
    thread.join();
  std::vector<int> expected(rounds);
  for (int round = 0; round < rounds; ++round)
    expected[static_cast<std::size_t>(round)] = round;
  for (std::size_t number = 0; number < senders; ++number)
    EXPECT_EQ(order[number], expected) << "sender " << number;
}

class Observed : public NS::Object, public NS::KeyValueObserving {
public:
  explicit Observed(std::vector<std::string> &notices) : notices_(notices) {}
  void willChangeValueForKey(const std::string &key) override { note("will " + key); }
  void didChangeValueForKey(const std::string &key) override { note("did " + key); }

private:
  void note(const std::string &text) {
    EXPECT_TRUE(NS::Thread::shared().isMainThread());
    notices_.push_back(text);
  }
  std::vector<std::string> &notices_;
};

TEST_F(MainThread, changeNoticesAreSentAtOnceThere) {
  auto observed = std::make_shared<Observed>(ran);
  kw::willChangeValueForKeyOnMainThread(observed, "size");
  kw::didChangeValueForKeyOnMainThread(observed, "size");
  EXPECT_EQ(ran, (Lines{"will size", "did size"}));
}

TEST_F(MainThread, changeNoticesFromElsewhereAreSentThereInOrder) {
  auto observed = std::make_shared<Observed>(ran);
  std::thread([&] {
    kw::willChangeValueForKeyOnMainThread(observed, "size");
    kw::didChangeValueForKeyOnMainThread(observed, "size");
  }).join();
  EXPECT_TRUE(ran.empty());
  turnMainRunLoop();
  EXPECT_EQ(ran, (Lines{"will size", "did size"}));
}

TEST_F(MainThread, changeNoticesDoNotReachAReceiverThatIsGone) {
  auto observed = std::make_shared<Observed>(ran);
  std::thread([&] {
    kw::willChangeValueForKeyOnMainThread(observed, "size");
    kw::didChangeValueForKeyOnMainThread(observed, "size");
  }).join();
  std::weak_ptr<NS::Object> weak = observed;
  observed.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_TRUE(turnMainRunLoop());
  EXPECT_TRUE(ran.empty());
}

TEST_F(MainThread, changeNoticesNeedAReceiverAKeyAndAListener) {
  auto observed = std::make_shared<Observed>(ran);
  kw::willChangeValueForKeyOnMainThread(observed, std::nullopt);
  kw::didChangeValueForKeyOnMainThread(observed, std::nullopt);
  kw::willChangeValueForKeyOnMainThread(nullptr, "size");
  kw::didChangeValueForKeyOnMainThread(sender, "size");
  EXPECT_TRUE(ran.empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(MainThread, fireBlockCallsIt) {
  kw::fireBlockAfterDelay(sender, [&] { ran.push_back("fired"); });
  kw::fireBlockAfterDelay(sender, nullptr);
  EXPECT_EQ(ran, (Lines{"fired"}));
}

TEST_F(MainThread, delayedBlocksRunOnTheCallersLoopWhenDue) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  std::thread([&] {
    std::thread::id thread;
    kw::performBlock(
        sender, [&] { thread = std::this_thread::get_id(); }, kw::AfterDelay{2.5});
    NS::RunLoop &loop = NS::RunLoop::currentRunLoop();
    clock.advance(2400ms);
    EXPECT_FALSE(loop.runMode(NS::DefaultRunLoopMode, {}));
    clock.advance(100ms);
    EXPECT_TRUE(loop.runMode(NS::DefaultRunLoopMode, {}));
    EXPECT_EQ(thread, std::this_thread::get_id());
  }).join();
}

// A background queue that runs nothing until it is told to.
class HeldQueue final : public NS::DispatchQueue {
public:
  void async(std::function<void()> block) override { blocks.push_back(std::move(block)); }
  std::vector<std::function<void()>> blocks;

private:
  NS::ScopedOverride<NS::DispatchQueue> override_{*this};
};

class FakeStack final : public NS::Thread {
public:
  void sleepForTimeInterval(double) override {}
  bool isMainThread() override { return true; }
  std::vector<std::string> callStackSymbols() override { return {"inner", "outer"}; }

private:
  NS::ScopedOverride<NS::Thread> override_{*this};
};

class PerformBlockWithTimeout : public MainThread {
protected:
  FakeStack stack;
};

const char *const timedOut = "Operation timed out (\n    inner,\n    outer\n)";

TEST_F(PerformBlockWithTimeout, waitsForTheBlockInTheBackground) {
  std::thread::id thread;
  kw::performBlock(
      sender, [&] { thread = std::this_thread::get_id(); }, kw::Timeout{600});
  EXPECT_NE(thread, std::thread::id());
  EXPECT_NE(thread, std::this_thread::get_id());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PerformBlockWithTimeout, truncatesTheTimeToWholeSeconds) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  HeldQueue queue;
  for (auto [seconds, whole] : {std::pair(2.999, 2s), std::pair(1.0, 1s)}) {
    NS::MonotonicTime start = clock.monotonicTime();
    kw::performBlock(
        sender, [] {}, kw::Timeout{seconds});
    ASSERT_TRUE(clock.monotonicDeadline());
    EXPECT_EQ(clock.monotonicDeadline()->sinceStart - start.sinceStart, whole);
  }
  EXPECT_EQ(log.lines(), (Lines{timedOut, timedOut}));
}

TEST_F(PerformBlockWithTimeout, ofLessThanASecondDoesNotWaitAndLogsAnUnfinishedBlock) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  HeldQueue queue;
  for (double seconds : {0.9, 0.0, -3.0, std::numeric_limits<double>::quiet_NaN()}) {
    kw::performBlock(
        sender, [] {}, kw::Timeout{seconds});
    EXPECT_FALSE(clock.monotonicDeadline()) << seconds;
  }
  EXPECT_EQ(log.lines(), (Lines{timedOut, timedOut, timedOut, timedOut}));
}

TEST_F(PerformBlockWithTimeout, ofLessThanASecondLogsNothingForABlockAlreadyDone) {
  class ImmediateQueue final : public NS::DispatchQueue {
  public:
    void async(std::function<void()> block) override { block(); }
  } queue;
  NS::ScopedOverride<NS::DispatchQueue> override(queue);
  kw::performBlock(
      sender, [&] { ran.push_back("ran"); }, kw::Timeout{0.9});
  EXPECT_EQ(ran, (Lines{"ran"}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PerformBlockWithTimeout, letsALateBlockRunToItsEnd) {
  HeldQueue queue;
  kw::performBlock(
      sender, [&] { ran.push_back("late"); }, kw::Timeout{0});
  EXPECT_TRUE(ran.empty());
  ASSERT_EQ(queue.blocks.size(), 1U);
  queue.blocks[0]();
  EXPECT_EQ(ran, (Lines{"late"}));
  EXPECT_EQ(log.lines(), (Lines{timedOut}));
}

TEST_F(PerformBlockWithTimeout, withoutABlockFailsItsAssertion) {
  kwtest::AssertionRecorder recorder;
  HeldQueue queue;
  kw::performBlock(sender, nullptr, kw::Timeout{5});
  EXPECT_EQ(recorder.failures,
            (std::vector<kwtest::AssertionFailure>{
                {"Sources/Additions/NSObjectAdditions", "Block shouldn't be nil"}}));
  EXPECT_TRUE(queue.blocks.empty());
  EXPECT_TRUE(log.lines().empty());
}

} // namespace
