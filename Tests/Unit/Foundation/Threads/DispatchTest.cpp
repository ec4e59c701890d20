// Groups, deadlines, once-tokens and the background queue.
#include "Foundation/Threads/Dispatch.h"

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Threads/Internal/BackgroundPriority.h"
#include "Support/FakeClock.h"
#include "Support/LogRecorder.h"
#include "Support/ThreadState.h"

#include <gtest/gtest.h>

#include <future>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#include <array>
#include <atomic>
#include <limits>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using NS::DispatchGroup;
constexpr std::int64_t second = NS::NanosecondsPerSecond;

TEST(DispatchGroup, withoutAnEntryIsNotWaitedFor) {
  auto group = DispatchGroup::create();
  group->wait();
  EXPECT_TRUE(group->wait(NS::dispatchTime(0)));
  EXPECT_TRUE(group->wait(NS::dispatchWallTime(-second)));
}

TEST(DispatchGroup, isWaitedForUntilEveryEnterWasLeft) {
  auto group = DispatchGroup::create();
  group->enter();
  group->enter();
  std::thread leaver([&] {
    group->leave();
    group->leave();
  });
  group->wait();
  EXPECT_EQ(group->count(), 0U);
  leaver.join();
}

TEST(DispatchGroup, isWaitedForUntilTheMonotonicDeadline) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  auto group = DispatchGroup::create();
  group->enter();
  NS::MonotonicTime deadline = NS::dispatchTime(30 * second);
  EXPECT_FALSE(group->wait(deadline));
  EXPECT_EQ(clock.monotonicDeadline(), deadline);
  EXPECT_FALSE(clock.wallDeadline());
}

TEST(DispatchGroup, isWaitedForUntilTheWallClockDeadline) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  auto group = DispatchGroup::create();
  group->enter();
  NS::WallTime deadline = NS::dispatchWallTime(second / 2);
  EXPECT_FALSE(group->wait(deadline));
  EXPECT_EQ(clock.wallDeadline(), deadline);
  EXPECT_FALSE(clock.monotonicDeadline());
}

TEST(DispatchGroup, isOnlyAskedWhenTheDeadlineHasPassed) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  auto group = DispatchGroup::create();
  group->enter();
  EXPECT_FALSE(group->wait(NS::dispatchTime(0)));
  EXPECT_FALSE(group->wait(NS::dispatchWallTime(-second)));
  EXPECT_FALSE(clock.monotonicDeadline());
  EXPECT_FALSE(clock.wallDeadline());
}

TEST(DispatchGroup, outOfClockRangeIsWaitedForWithoutLimit) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(NS::dispatchTime(most).sinceStart, std::chrono::nanoseconds(most));
  EXPECT_EQ(NS::dispatchWallTime(most).since1970, std::chrono::nanoseconds(most));
  auto group = DispatchGroup::create();
  group->enter();
  std::atomic<bool> isLeft = false;
  std::thread leaver([&, waiting = ::gettid()] {
    while (!kwtest::isAsleep(waiting))
      std::this_thread::yield();
    isLeft = true;
    group->leave();
  });
  EXPECT_TRUE(group->wait(NS::dispatchWallTime(most)));
  EXPECT_TRUE(isLeft);
  leaver.join();
}

TEST(DispatchGroup, leftWithoutAnEnterSaysSoAndGoesOn) {
  kwtest::LogRecorder log;
  auto group = DispatchGroup::create();
  group->leave();
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"A dispatch group was left more often than it was entered"}));
  EXPECT_EQ(group->count(), 0U);
  group->enter();
  EXPECT_EQ(group->count(), 1U);
}

TEST(DispatchGroup, mayBeUsedByTheLogThatItWritesTo) {
  auto group = DispatchGroup::create();
  std::vector<std::uint64_t> counts;
  NS::ScopedLogSink sink([&](const std::string &) { counts.push_back(group->count()); });
  group->leave();
  EXPECT_EQ(counts, std::vector<std::uint64_t>{0});
}

TEST(DispatchGroup, releasesManyWaitersAtOnce) {
  auto group = DispatchGroup::create();
  group->enter();
  std::vector<std::thread> waiters;
  std::atomic<int> released{0};
  for (int i = 0; i < 16; ++i)
    waiters.emplace_back([&, i] {
      i % 2 ? group->wait() : static_cast<void>(group->wait(NS::dispatchTime(600 * second)));
      ++released;
    });
  group->leave();
  for (std::thread &waiter : waiters)
    waiter.join();
  EXPECT_EQ(released, 16);
}

TEST(DispatchOnce, runsOneBlockHoweverManyThreadsCall) {
  NS::DispatchOnceToken token;
  int runs = 0;
  std::vector<std::thread> callers;
  for (int i = 0; i < 8; ++i)
    callers.emplace_back([&] {
      NS::dispatchOnce(token, [&] { ++runs; });
      EXPECT_EQ(runs, 1);
    });
  for (std::thread &caller : callers)
    caller.join();
}

TEST(DispatchQueue, runsBlocksOnOtherThreads) {
  auto group = DispatchGroup::create();
  std::array<std::thread::id, 100> ran{};
  for (std::thread::id &id : ran) {
    group->enter();
    NS::DispatchQueue::backgroundQueue().async([&id, group] {
      id = std::this_thread::get_id();
      group->leave();
    });
  }
  group->wait();
  for (std::thread::id id : ran) {
    EXPECT_NE(id, std::thread::id());
    EXPECT_NE(id, std::this_thread::get_id());
  }
}

TEST(DispatchQueue, runsABlockThatAnotherWaitsFor) {
  auto outer = DispatchGroup::create();
  outer->enter();
  NS::DispatchQueue &queue = NS::DispatchQueue::backgroundQueue();
  queue.async([&queue, outer] {
    auto inner = DispatchGroup::create();
    inner->enter();
    queue.async([inner] { inner->leave(); });
    inner->wait();
    outer->leave();
  });
  outer->wait();
}

TEST(DispatchQueue, runsEveryBlockOfMoreThanItHasThreads) {
  auto gate = DispatchGroup::create();
  auto all = DispatchGroup::create();
  gate->enter();
  for (int i = 0; i < 200; ++i) {
    all->enter();
    NS::DispatchQueue::backgroundQueue().async([gate, all] {
      gate->wait();
      all->leave();
    });
  }
  gate->leave();
  all->wait();
  EXPECT_EQ(all->count(), 0U);
}

TEST(DispatchQueue, outlivesABlockThatThrows) {
  kwtest::LogRecorder log;
  auto group = DispatchGroup::create();
  group->enter();
  // Left when the block is destroyed, which is after its failure was logged.
  std::shared_ptr<void> leaves(nullptr, [group](void *) { group->leave(); });
  NS::DispatchQueue::backgroundQueue().async(
      [leaves = std::move(leaves)] { throw std::runtime_error("no luck"); });
  group->wait();
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"A background block raised: no luck"}));
}

TEST(DispatchQueue, outlivesABlockThatThrowsNoExceptionObject) {
  kwtest::LogRecorder log;
  auto group = DispatchGroup::create();
  group->enter();
  std::shared_ptr<void> leaves(nullptr, [group](void *) { group->leave(); });
  NS::DispatchQueue::backgroundQueue().async([leaves = std::move(leaves)] { throw 1; });
  group->wait();
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"A background block raised something unknown"}));
}

// A block that throws for lack of memory leaves none for the line either. The end
// of its thread would be that of the process.
TEST(DispatchQueue, outlivesABlockThatThrowsWithoutMemoryForTheLog) {
  NS::ScopedLogSink sink([](const std::string &) { throw std::bad_alloc(); });
  auto group = DispatchGroup::create();
  group->enter();
  std::shared_ptr<void> leaves(nullptr, [group](void *) { group->leave(); });
  NS::DispatchQueue::backgroundQueue().async(
      [leaves = std::move(leaves)] { throw std::bad_alloc(); });
  group->wait();
}

TEST(DispatchQueue, worksWithTheLowestPriorityForProcessorAndDisk) {
  using Priorities = std::pair<int, long>;
  auto prioritiesOfThisThread = []() -> Priorities {
    constexpr int onlyThisThread = 1;
    return {::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid())),
            ::syscall(SYS_ioprio_get, onlyThisThread, 0)};
  };
  Priorities before = prioritiesOfThisThread();
  std::promise<Priorities> priorities;
  NS::DispatchQueue::backgroundQueue().async(
      [&] { priorities.set_value(prioritiesOfThisThread()); });
  auto [processor, disk] = priorities.get_future().get();
  EXPECT_EQ(processor, 19);
  EXPECT_EQ(disk >> 13, 3) << "the class that is served when the disk is idle";
  EXPECT_EQ(prioritiesOfThisThread(), before);
}

TEST(BackgroundPriority, isThatOfTheCallingThreadAlone) {
  constexpr int onlyThisThread = 1;
  constexpr long ordinary = 2 << 13 | 4;
  long former = ::syscall(SYS_ioprio_get, onlyThisThread, 0);
  ASSERT_EQ(::syscall(SYS_ioprio_set, onlyThisThread, 0, ordinary), 0);
  std::thread([] { NS::takeBackgroundPriority(); }).join();
  EXPECT_EQ(::syscall(SYS_ioprio_get, onlyThisThread, 0), ordinary);
  ::syscall(SYS_ioprio_set, onlyThisThread, 0, former);
}

} // namespace
