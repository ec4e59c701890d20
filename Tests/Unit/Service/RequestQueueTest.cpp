// One client's requests: order, bounds and suspension.
#include "Service/Linux/RequestQueue.h"
#include "Foundation/Threads/Internal/WorkerPool.h"
#include "Support/Gate.h"
#include "Support/Signal.h"

#include <atomic>
#include <gmock/gmock.h>
#include <numeric>
#include <thread>
#include <vector>

namespace {

using kwtest::Gate;
using kwtest::Signal;
using NS::RequestQueue;
using NS::RequestQueueLimits;
using NS::WorkerPool;

constexpr std::chrono::hours never{1};

std::shared_ptr<WorkerPool> poolOf(std::size_t threads) {
  return std::make_shared<WorkerPool>(NS::WorkerLimits{threads}, never);
}

std::shared_ptr<RequestQueue> releasedQueue(const std::shared_ptr<WorkerPool> &pool,
                                            RequestQueueLimits limits = {}) {
  auto queue = std::make_shared<RequestQueue>(pool, limits);
  queue->release();
  return queue;
}

// Returns when all that is in the queue now has been done.
void drain(RequestQueue &queue) {
  Signal reached;
  ASSERT_TRUE(queue.enqueue([reached] { reached.raise(); }, 0));
  reached.wait();
}

TEST(RequestQueue, runsARequestAtOnceOnTheCallingThreadWhenNothingWaits) {
  auto queue = releasedQueue(poolOf(1));
  std::thread::id where;
  EXPECT_TRUE(queue->runAtOnce([&where] { where = std::this_thread::get_id(); }));
  EXPECT_EQ(where, std::this_thread::get_id());
}

TEST(RequestQueue, runsNothingAtOnceBehindARequestThatIsUnderWay) {
  auto queue = releasedQueue(poolOf(1));
  Gate gate;
  ASSERT_TRUE(queue->enqueue(gate.request(), 0));
  gate.waitUntilEntered();
  EXPECT_FALSE(queue->runAtOnce([] { ADD_FAILURE() << "it was not its turn"; }));
  gate.open();
  drain(*queue);
}

TEST(RequestQueue, runsNothingAtOnceWhileItIsHeld) {
  auto queue = releasedQueue(poolOf(1));
  queue->hold();
  EXPECT_FALSE(queue->runAtOnce([] { ADD_FAILURE() << "the queue was held"; }));
}

TEST(RequestQueue, goesOnWithRequestsThatCameWhileOneRanAtOnce) {
  auto queue = releasedQueue(poolOf(1));
  Signal done;
  bool isRunning = false;
  ASSERT_TRUE(queue->runAtOnce([&] {
    isRunning = true;
    ASSERT_TRUE(queue->enqueue(
        [&] {
          EXPECT_FALSE(isRunning);
          done.raise();
        },
        0));
    EXPECT_FALSE(queue->runAtOnce([] { ADD_FAILURE() << "one is under way"; }));
    isRunning = false;
  }));
  done.wait();
}

TEST(RequestQueue, handlesRequestsInTheOrderOfTheirArrivalOneAtATime) {
  auto queue = releasedQueue(poolOf(8));
  std::vector<int> seen; // unguarded: that is the point
  for (int number = 0; number < 1000; ++number)
    ASSERT_TRUE(queue->enqueue([&seen, number] { seen.push_back(number); }, 0));
  drain(*queue);
  std::vector<int> expected(1000);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(seen, expected);
}

TEST(RequestQueue, doesNotHoldUpAnotherQueue) {
  auto pool = poolOf(8);
  auto blocked = releasedQueue(pool);
  auto other = releasedQueue(pool);
  Gate gate;
  ASSERT_TRUE(blocked->enqueue(gate.request(), 0));
  gate.waitUntilEntered();
  drain(*other); // comes back although the first one is still at work
  gate.open();
  drain(*blocked);
}

TEST(RequestQueue, refusesRequestsBeyondItsLimitAndKeepsTheRest) {
  auto queue = releasedQueue(poolOf(2), {3, 1000});
  Gate gate;
  int done = 0;
  ASSERT_TRUE(queue->enqueue(gate.request(), 0));
  gate.waitUntilEntered();
  for (int number = 0; number < 3; ++number)
    EXPECT_TRUE(queue->enqueue([&] { ++done; }, 0));
  EXPECT_FALSE(queue->enqueue([&] { done += 100; }, 0));
  gate.open();
  Signal reached;
  while (!queue->enqueue([reached] { reached.raise(); }, 0)) // until one has left
    std::this_thread::yield();
  reached.wait();
  EXPECT_EQ(done, 3);
}

TEST(RequestQueue, countsTheBytesThatWait) {
  auto queue = std::make_shared<RequestQueue>(poolOf(1), RequestQueueLimits{100, 10});
  EXPECT_FALSE(queue->enqueue([] {}, 11));
  EXPECT_TRUE(queue->enqueue([] {}, 10));
  EXPECT_FALSE(queue->enqueue([] {}, 1));
  EXPECT_TRUE(queue->enqueue([] {}, 0));
  queue->release();
  Signal reached;
  ASSERT_TRUE(queue->enqueue([reached] { reached.raise(); }, 0));
  reached.wait();
  EXPECT_TRUE(queue->enqueue([] {}, 10));
}

TEST(RequestQueue, deliversNothingWhileItIsHeld) {
  auto queue = releasedQueue(poolOf(2));
  std::vector<int> seen;
  Gate gate;
  // As a request to end the process does: holds it from within.
  ASSERT_TRUE(queue->enqueue(
      [&, wait = gate.request()] {
        queue->hold();
        seen.push_back(1);
        wait();
      },
      0));
  ASSERT_TRUE(queue->enqueue([&] { seen.push_back(2); }, 0));
  gate.waitUntilEntered();
  gate.open();
  queue->release();
  drain(*queue);
  EXPECT_THAT(seen, testing::ElementsAre(1, 2));
}

TEST(RequestQueue, isHeldUntilItsFirstRelease) {
  auto pool = poolOf(1);
  auto queue = std::make_shared<RequestQueue>(pool, RequestQueueLimits{});
  std::atomic<bool> done{false};
  ASSERT_TRUE(queue->enqueue([&] { done = true; }, 0));
  drain(*releasedQueue(pool));
  EXPECT_FALSE(done);
  queue->release();
  drain(*queue);
  EXPECT_TRUE(done);
}

TEST(RequestQueue, finishesWaitingRequestsWhenItsOwnerIsGone) {
  auto queue = releasedQueue(poolOf(2));
  Gate gate;
  Signal last;
  ASSERT_TRUE(queue->enqueue(gate.request(), 0));
  gate.waitUntilEntered();
  ASSERT_TRUE(queue->enqueue([last] { last.raise(); }, 0));
  queue.reset();
  gate.open();
  last.wait();
}

TEST(RequestQueue, dropsWaitingRequestsWhenItsOwnerIsGoneWhileHeld) {
  auto token = std::make_shared<int>(0);
  std::weak_ptr<int> watched = token;
  auto queue = std::make_shared<RequestQueue>(poolOf(1), RequestQueueLimits{});
  ASSERT_TRUE(queue->enqueue([token = std::move(token)] {}, 0));
  queue.reset();
  EXPECT_TRUE(watched.expired());
}

TEST(RequestQueue, whileHeldKeepsNewRequestsAndThenDoesThem) {
  auto pool = poolOf(1);
  auto queue = releasedQueue(pool);
  Gate gate;
  ASSERT_TRUE(queue->enqueue(gate.request(), 0));
  gate.waitUntilEntered();
  queue->hold();
  std::atomic<int> done = 0;
  for (int number = 0; number < 10; ++number)
    ASSERT_TRUE(queue->enqueue([&] { ++done; }, 0));
  gate.open();
  auto other = releasedQueue(pool);
  drain(*other); // the only thread has left the held queue
  EXPECT_EQ(done, 0);
  queue->release();
  drain(*queue);
  EXPECT_EQ(done, 10);
}

TEST(RequestQueue, isHeldUntilEachHoldIsReleased) {
  auto pool = poolOf(1);
  auto queue = releasedQueue(pool);
  queue->release(); // without a hold it means nothing
  queue->hold();
  queue->hold();
  std::atomic<int> done = 0;
  ASSERT_TRUE(queue->enqueue([&] { ++done; }, 0));
  queue->release();
  drain(*releasedQueue(pool)); // behind it, had it gone on
  EXPECT_EQ(done, 0);
  queue->release();
  drain(*queue);
  EXPECT_EQ(done, 1);
}

TEST(RequestQueue, sharesTheThreadsWithOtherUsers) {
  auto pool = std::make_shared<WorkerPool>(NS::WorkerLimits{2, 1}, never);
  auto blocked = releasedQueue(pool), behind = releasedQueue(pool), other = releasedQueue(pool);
  other->setUser(1);
  Gate gate;
  ASSERT_TRUE(blocked->enqueue(gate.request(), 0));
  gate.waitUntilEntered();
  Signal sameUser;
  ASSERT_TRUE(behind->enqueue([sameUser] { sameUser.raise(); }, 0));
  drain(*other);
  EXPECT_FALSE(sameUser.isRaised());
  gate.open();
  sameUser.wait();
}

} // namespace
