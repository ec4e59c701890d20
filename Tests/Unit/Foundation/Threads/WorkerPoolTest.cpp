// The threads of a pool, and the turns of its users.
#include "Foundation/Threads/Internal/WorkerPool.h"
#include "Support/Gate.h"
#include "Support/Signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

namespace {

using kwtest::Gate;
using kwtest::Signal;
using NS::WorkerPool;

constexpr std::chrono::hours never{1};

TEST(WorkerPool, startsAThreadForEachPieceOfWorkThatBlocks) {
  WorkerPool pool({16}, never);
  std::vector<Gate> gates(5);
  for (Gate &gate : gates)
    pool.submit(gate.request());
  for (Gate &gate : gates)
    gate.waitUntilEntered(); // all at the same time
  EXPECT_EQ(pool.threadCount(), 5u);
  for (Gate &gate : gates)
    gate.open();
}

TEST(WorkerPool, usesAnIdleThreadAgain) {
  WorkerPool pool({16}, never);
  for (int round = 0; round < 50; ++round) {
    Signal done;
    pool.submit([done] { done.raise(); });
    done.wait();
    while (pool.idleThreadCount() == 0)
      std::this_thread::yield();
  }
  EXPECT_EQ(pool.threadCount(), 1u);
}

TEST(WorkerPool, keepsToItsLimitAndDoesTheRestLater) {
  WorkerPool pool({2}, never);
  Gate one, other;
  Signal third;
  pool.submit(one.request());
  pool.submit(other.request());
  one.waitUntilEntered();
  other.waitUntilEntered();
  pool.submit([third] { third.raise(); });
  EXPECT_EQ(pool.threadCount(), 2u);
  EXPECT_FALSE(third.isRaised());
  one.open();
  third.wait();
  other.open();
}

TEST(WorkerPool, letsIdleThreadsGoAllButOne) {
  WorkerPool pool({8}, std::chrono::milliseconds(1));
  std::vector<Gate> gates(4);
  for (Gate &gate : gates)
    pool.submit(gate.request());
  for (Gate &gate : gates)
    gate.waitUntilEntered();
  for (Gate &gate : gates)
    gate.open();
  while (pool.threadCount() > 1)
    std::this_thread::yield();
  Signal done;
  pool.submit([done] { done.raise(); });
  done.wait();
}

TEST(WorkerPool, beginsAnothersWorkAtOnceThoughOneUserHasMoreThanItsShare) {
  WorkerPool pool({4, 3}, never);
  std::vector<Gate> gates(5);
  for (std::size_t piece = 0; piece < 5; ++piece) {
    pool.submit(gates[piece].request(), 1);
    if (piece < 3)
      gates[piece].waitUntilEntered();
  }
  EXPECT_EQ(pool.threadCount(), 3u) << "the fourth thread is not for this user";
  Signal others;
  pool.submit([others] { others.raise(); }, 2);
  others.wait();
  for (const Gate &gate : gates)
    gate.open();
  for (const Gate &gate : gates)
    gate.waitUntilEntered();
}

TEST(WorkerPool, startsNoThreadForTheSecondPieceOfAUserWhoMayHaveOne) {
  WorkerPool pool({4, 1}, never);
  Gate first, second;
  pool.submit(first.request());
  first.waitUntilEntered();
  pool.submit(second.request());
  EXPECT_EQ(pool.threadCount(), 1u);
  first.open();
  second.waitUntilEntered();
  second.open();
}

TEST(WorkerPool, beginsTheFirstPieceOfEachUserBeyondItsLimit) {
  WorkerPool pool({2}, never);
  std::vector<Gate> gates(6);
  for (unsigned user = 0; user < 6; ++user) {
    pool.submit(gates[user].request(), user);
    gates[user].waitUntilEntered();
  }
  Signal second;
  pool.submit([second] { second.raise(); }, 3);
  EXPECT_FALSE(second.isRaised()) << "the limit is reached, and this user has its turn";
  EXPECT_EQ(pool.threadCount(), 6u);
  for (const Gate &gate : gates)
    gate.open();
  second.wait();
}

TEST(WorkerPool, takesTheWorkOfSeveralUsersByTurns) {
  WorkerPool pool({2}, never);
  Gate first, second;
  pool.submit(first.request(), 1);
  first.waitUntilEntered();
  pool.submit(second.request(), 2);
  second.waitUntilEntered();
  std::string order; // unguarded: one thread is free, the other stays at the gate
  Signal done;
  for (char piece : {'a', 'b', 'c'})
    pool.submit([&order, piece] { order += piece; }, 1);
  for (char piece : {'x', 'y', 'z'})
    pool.submit([&order, piece] { order += piece; }, 2);
  pool.submit([done] { done.raise(); }, 2);
  EXPECT_EQ(pool.threadCount(), 2u);
  first.open();
  done.wait();
  EXPECT_EQ(order, "axbycz");
  second.open();
}

TEST(WorkerPool, preparesEachThreadBeforeItsWork) {
  std::atomic<int> prepared = 0;
  WorkerPool pool({8}, never, [&] { ++prepared; });
  Gate one, other;
  pool.submit(one.request());
  pool.submit(other.request());
  one.waitUntilEntered();
  other.waitUntilEntered();
  EXPECT_EQ(prepared, 2);
  one.open();
  other.open();
}

TEST(WorkerPool, finishesSubmittedWorkBeforeItGoes) {
  Signal done;
  Gate gate;
  {
    WorkerPool pool({1}, never);
    pool.submit(gate.request());
    gate.waitUntilEntered();
    pool.submit([done] { done.raise(); });
  }
  gate.open();
  done.wait();
}

} // namespace
