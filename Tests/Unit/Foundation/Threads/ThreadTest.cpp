// Operations of the current thread.
#include "Foundation/Threads/Thread.h"

#include <array>
#include <chrono>
#include <csignal>
#include <execinfo.h>
#include <gtest/gtest.h>
#include <limits>
#include <pthread.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

double secondsOf(double interval) {
  auto start = Clock::now();
  NS::Thread::shared().sleepForTimeInterval(interval);
  return std::chrono::duration<double>(Clock::now() - start).count();
}

TEST(Thread, knowsTheMainThread) {
  EXPECT_TRUE(NS::Thread::shared().isMainThread());
  bool other = true;
  std::thread([&] { other = NS::Thread::shared().isMainThread(); }).join();
  EXPECT_FALSE(other);
}

TEST(Thread, sleepsNoShorterThanAsked) {
  EXPECT_GE(secondsOf(0.02), 0.02);
}

TEST(Thread, doesNotSleepForLessThanNothing) {
  // Each of these would never return if it were taken for a long time.
  secondsOf(0);
  secondsOf(-1e300);
  secondsOf(std::numeric_limits<double>::quiet_NaN());
  secondsOf(-std::numeric_limits<double>::infinity());
}

TEST(Thread, sleepsOnAfterASignal) {
  struct sigaction caught = {};
  struct sigaction former;
  caught.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &caught, &former), 0);
  std::atomic<bool> done{false};
  pthread_t sleeper = ::pthread_self();
  std::thread disturber([&] {
    while (!done) {
      ::pthread_kill(sleeper, SIGUSR1);
      std::this_thread::yield();
    }
  });
  double slept = secondsOf(0.05);
  done = true;
  disturber.join();
  ::sigaction(SIGUSR1, &former, nullptr);
  EXPECT_GE(slept, 0.05);
}

TEST(Thread, namesItsFramesALineEach) {
  std::vector<std::string> symbols = NS::Thread::shared().callStackSymbols();
  ASSERT_GE(symbols.size(), 3U);
  for (const std::string &symbol : symbols) {
    EXPECT_FALSE(symbol.empty());
    EXPECT_EQ(symbol.find('\n'), std::string::npos);
  }
}

TEST(Thread, namesEachFrameOfItsCallerAlone) {
  std::array<void *, 128> frames;
  int count = ::backtrace(frames.data(), static_cast<int>(frames.size()));
  EXPECT_EQ(NS::Thread::shared().callStackSymbols().size(), static_cast<std::size_t>(count));
}

TEST(Thread, canBeReplaced) {
  class Replacement final : public NS::Thread {
  public:
    void sleepForTimeInterval(double seconds) override { slept = seconds; }
    bool isMainThread() override { return false; }
    std::vector<std::string> callStackSymbols() override { return {"frame"}; }
    double slept = 0;
  } replacement;
  NS::Thread *former = NS::Thread::exchangeShared(&replacement);
  NS::Thread::shared().sleepForTimeInterval(3600);
  EXPECT_EQ(replacement.slept, 3600);
  EXPECT_FALSE(NS::Thread::shared().isMainThread());
  NS::Thread::exchangeShared(former);
  EXPECT_TRUE(NS::Thread::shared().isMainThread());
}

} // namespace
