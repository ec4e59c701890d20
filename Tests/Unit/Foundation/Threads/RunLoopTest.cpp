// Blocks on a run loop: their turn, their order, their modes and their time.
#include "Foundation/Threads/RunLoop.h"

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Threads/Dispatch.h"
#include "Foundation/Threads/Internal/RunLoopBlocks.h"
#include "Support/FakeClock.h"
#include "Support/LogRecorder.h"
#include "Support/ThreadState.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using NS::RunLoop;

const NS::RunLoopModes commonModes = {NS::RunLoopCommonModes};
constexpr NS::MonotonicTime past{};

class RunLoopTest : public ::testing::Test {
protected:
  // Handles the present events in the mode without waiting; false without any.
  bool turn(const char *mode = NS::DefaultRunLoopMode) { return loop.runMode(mode, past); }
  std::function<void()> note(int value) {
    return [this, value] { ran.push_back(value); };
  }

  RunLoop &loop = RunLoop::mainRunLoop();
  std::vector<int> ran;
};

TEST_F(RunLoopTest, ofTheMainThreadIsTheMainLoop) {
  EXPECT_EQ(&RunLoop::currentRunLoop(), &RunLoop::mainRunLoop());
  std::thread([] { EXPECT_NE(&RunLoop::currentRunLoop(), &RunLoop::mainRunLoop()); }).join();
}

TEST_F(RunLoopTest, runsBlocksInTheOrderInWhichTheyCame) {
  for (int value : {1, 2, 3})
    loop.performBlock(note(value), commonModes);
  EXPECT_TRUE(ran.empty());
  EXPECT_TRUE(turn());
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
  EXPECT_FALSE(turn());
}

TEST_F(RunLoopTest, runsBlocksAddedByABlockAtTheNextTurn) {
  loop.performBlock(
      [this] {
        ran.push_back(1);
        loop.performBlock(note(3), commonModes);
      },
      commonModes);
  loop.performBlock(note(2), commonModes);
  turn();
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
  turn();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

TEST_F(RunLoopTest, runsTheRestOfATurnInOrderWithinABlockThatRunsTheLoop) {
  loop.performBlock(
      [this] {
        ran.push_back(1);
        turn();
        ran.push_back(3);
      },
      commonModes);
  loop.performBlock(note(2), commonModes);
  turn();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

TEST_F(RunLoopTest, keepsABlockForItsModes) {
  loop.performBlock(note(1), {"panel"});
  loop.performBlock(note(2), commonModes);
  loop.performBlock(note(3), {"panel", NS::DefaultRunLoopMode});
  turn();
  EXPECT_EQ(ran, (std::vector<int>{2, 3}));
  EXPECT_TRUE(turn("panel"));
  EXPECT_EQ(ran, (std::vector<int>{2, 3, 1}));
  loop.performBlock(note(4), commonModes);
  EXPECT_FALSE(turn("panel"));
  EXPECT_TRUE(turn());
}

TEST_F(RunLoopTest, neverRunsABlockWithoutModes) {
  loop.performBlock(note(1), {});
  EXPECT_FALSE(turn());
  EXPECT_TRUE(ran.empty());
}

TEST_F(RunLoopTest, runsADelayedBlockOnceItIsDue) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  loop.performBlock(note(2), 60, commonModes);
  loop.performBlock(note(1), 30, commonModes);
  EXPECT_FALSE(turn());
  clock.advance(29s);
  EXPECT_FALSE(turn());
  clock.advance(1s);
  EXPECT_TRUE(turn());
  EXPECT_EQ(ran, (std::vector<int>{1}));
  clock.advance(60s);
  EXPECT_TRUE(turn());
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST_F(RunLoopTest, passesOverAMissingBlock) {
  loop.performBlock(nullptr, commonModes);
  loop.performBlock(note(1), commonModes);
  EXPECT_TRUE(turn());
  EXPECT_EQ(ran, (std::vector<int>{1}));
}

TEST_F(RunLoopTest, takesNoDelayALessOneAndNoNumberForNone) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  loop.performBlock(note(1), 0, commonModes);
  loop.performBlock(note(2), -5, commonModes);
  loop.performBlock(note(3), std::numeric_limits<double>::quiet_NaN(), commonModes);
  EXPECT_TRUE(ran.empty());
  EXPECT_TRUE(turn());
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

TEST_F(RunLoopTest, survivesADelayBeyondTheEndOfTime) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  auto held = std::make_shared<int>(0);
  std::thread([&] {
    RunLoop::currentRunLoop().performBlock([held] { FAIL(); },
                                           std::numeric_limits<double>::infinity(), commonModes);
    clock.advance(std::chrono::hours(24 * 365 * 100));
    EXPECT_FALSE(RunLoop::currentRunLoop().runMode(NS::DefaultRunLoopMode, past));
  }).join();
  // The loop and its blocks are gone with the thread.
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(RunLoopTest, sleepsUntilADelayedBlockIsDue) {
  loop.performBlock([this] { loop.stop(); }, 0.001, commonModes);
  loop.run();
}

TEST_F(RunLoopTest, outlivesABlockThatThrows) {
  kwtest::LogRecorder log;
  loop.performBlock([] { throw std::runtime_error("no luck"); }, commonModes);
  loop.performBlock([] { throw 1; }, commonModes);
  loop.performBlock(note(1), commonModes);
  turn();
  EXPECT_EQ(ran, (std::vector<int>{1}));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"A run loop block raised: no luck",
                                                   "A run loop block raised something unknown"}));
}

TEST_F(RunLoopTest, wakesForABlockFromAnotherThread) {
  std::thread sender([this] {
    loop.performBlock(note(1), commonModes);
    loop.performBlock([this] { loop.stop(); }, commonModes);
  });
  loop.run();
  sender.join();
  EXPECT_EQ(ran, (std::vector<int>{1}));
}

// Runs the loop without a block that is due, and calls the function on another
// thread once the loop sleeps.
void whileItSleeps(RunLoop &loop, const std::function<void()> &function) {
  int runner = ::gettid();
  std::thread other([&] {
    while (!kwtest::isAsleep(runner))
      std::this_thread::yield();
    function();
  });
  loop.run();
  other.join();
}

TEST_F(RunLoopTest, isWokenByABlock) {
  whileItSleeps(loop, [this] { loop.performBlock([this] { loop.stop(); }, commonModes); });
}

TEST_F(RunLoopTest, isWokenByADelayedBlock) {
  whileItSleeps(loop, [this] { loop.performBlock([this] { loop.stop(); }, 0.001, commonModes); });
}

TEST_F(RunLoopTest, isWokenByAStop) {
  whileItSleeps(loop, [this] { loop.stop(); });
}

TEST_F(RunLoopTest, sleepsWhileABlockIsNotDueYet) {
  loop.performBlock([] {}, 3600, commonModes);
  whileItSleeps(loop, [this] { loop.stop(); });
}

TEST_F(RunLoopTest, doesNotWaitWithALimitThatIsNow) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  EXPECT_FALSE(loop.runMode(NS::DefaultRunLoopMode, clock.monotonicTime()));
}

TEST_F(RunLoopTest, stopsTheInnermostRunAlone) {
  loop.performBlock(
      [this] {
        loop.performBlock([this] { loop.stop(); }, commonModes);
        loop.run();
        ran.push_back(1);
        loop.stop();
      },
      commonModes);
  loop.run();
  EXPECT_EQ(ran, (std::vector<int>{1}));
}

TEST_F(RunLoopTest, goesOnAfterAnInnerRunWasStopped) {
  loop.performBlock(
      [this] {
        loop.performBlock([this] { loop.stop(); }, commonModes);
        loop.run();
      },
      commonModes);
  loop.performBlock(note(1), 0.001, commonModes);
  loop.performBlock([this] { loop.stop(); }, 0.002, commonModes);
  loop.run();
  EXPECT_EQ(ran, (std::vector<int>{1}));
}

TEST_F(RunLoopTest, isStoppedFromAnotherThread) {
  auto running = NS::DispatchGroup::create();
  running->enter();
  std::thread stopper([&] {
    running->wait();
    loop.stop();
  });
  loop.performBlock([&] { running->leave(); }, commonModes);
  loop.run();
  stopper.join();
}

TEST_F(RunLoopTest, ignoresAStopWhileNothingRuns) {
  loop.stop();
  loop.performBlock(note(1), commonModes);
  EXPECT_TRUE(turn());
  EXPECT_EQ(ran, (std::vector<int>{1}));
}

TEST(RunLoopBlocks, tellWhetherAnyRan) {
  NS::RunLoopBlocks blocks;
  EXPECT_FALSE(blocks.performDue(NS::DefaultRunLoopMode));
  blocks.add([] {}, commonModes);
  EXPECT_TRUE(blocks.performDue(NS::DefaultRunLoopMode));
  EXPECT_FALSE(blocks.performDue(NS::DefaultRunLoopMode));
}

} // namespace
