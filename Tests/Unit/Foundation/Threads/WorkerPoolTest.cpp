// The threads of a pool, and the turns of its users.
#include "Foundation/Threads/Internal/WorkerPool.h"
#include "Support/ForkedChild.h"
#include "Support/Gate.h"
#include "Support/LogRecorder.h"
#include "Support/Signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using kwtest::Gate;
using kwtest::Signal;
using NS::WorkerPool;

constexpr std::chrono::hours never{1};

// Returns once so many threads are idle. The pool sends no notice of that.
void awaitIdle(const WorkerPool &pool, std::size_t count) {
  while (pool.idleThreadCount() != count)
    std::this_thread::yield();
}

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
    awaitIdle(pool, 1);
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

TEST(WorkerPool, keepsTheLastThreadHoweverLongItIsIdle) {
  WorkerPool pool({8}, std::chrono::milliseconds(0));
  for (int round = 0; round < 50; ++round) {
    awaitIdle(pool, 1);
    Signal done;
    pool.submit([done] { done.raise(); });
    done.wait();
  }
  awaitIdle(pool, 1);
  EXPECT_EQ(pool.threadCount(), 1u);
}

TEST(WorkerPool, keepsAnIdleThreadFromAUserWhoHasItsShare) {
  WorkerPool pool({4, 3}, never);
  std::vector<Gate> gates(3);
  for (const Gate &gate : gates) {
    pool.submit(gate.request(), 1);
    gate.waitUntilEntered();
  }
  Signal fourth, others;
  pool.submit([fourth] { fourth.raise(); }, 1);
  pool.submit([others] { others.raise(); }, 2);
  others.wait();
  awaitIdle(pool, 1); // its thread has looked for further work by now
  EXPECT_FALSE(fourth.isRaised());
  for (const Gate &gate : gates)
    gate.open();
  fourth.wait();
}

TEST(WorkerPool, countsTheWorkOfAUserThatIsStillUnderWay) {
  WorkerPool pool({4, 2}, never);
  Gate first, second, third;
  Signal fourth;
  pool.submit(first.request(), 1);
  pool.submit(second.request(), 1);
  first.waitUntilEntered();
  second.waitUntilEntered();
  first.open();
  awaitIdle(pool, 1);
  pool.submit(third.request(), 1);
  third.waitUntilEntered();
  pool.submit([fourth] { fourth.raise(); }, 1);
  EXPECT_EQ(pool.threadCount(), 2u) << "two of its pieces are under way";
  second.open();
  third.open();
  fourth.wait();
}

TEST(WorkerPool, keepsAnIdleThreadFromASecondPieceAtTheLimitInAll) {
  WorkerPool pool({2}, never);
  std::vector<Gate> gates(3);
  for (unsigned user = 0; user < 3; ++user) {
    pool.submit(gates[user].request(), user);
    gates[user].waitUntilEntered();
  }
  Signal second;
  pool.submit([second] { second.raise(); }, 0);
  gates[2].open();
  awaitIdle(pool, 1);
  EXPECT_FALSE(second.isRaised()) << "two pieces are under way";
  gates[1].open();
  second.wait();
  gates[0].open();
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

TEST(WorkerPool, endsItsThreadsWhenItGoes) {
  auto held = std::make_shared<int>();
  {
    Gate one, other;
    WorkerPool pool({4}, never, [held] {});
    pool.submit(one.request());
    pool.submit(other.request());
    one.waitUntilEntered();
    other.waitUntilEntered();
    one.open();
    other.open();
    awaitIdle(pool, 2);
  }
  while (held.use_count() > 1)
    std::this_thread::yield();
}

TEST(WorkerPool, leavesThePieceToThePresentThreadsWhereNoFurtherOneCanBeMade) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              kwtest::LogRecorder log;
              WorkerPool pool({4}, never);
              Gate gate;
              pool.submit(gate.request());
              gate.waitUntilEntered();
              rlimit none = {0, 0};
              if (::setrlimit(RLIMIT_NPROC, &none) != 0 ||
                  (kwtest::isRoot() && !kwtest::dropRoot()))
                return "threads can still be made";
              Signal second;
              pool.submit([second] { second.raise(); });
              if (log.lines().size() != 1)
                return "it says nothing";
              gate.open();
              second.wait();
              return log.lines()[0].substr(0, 25);
            }),
            "No further worker thread:");
}

} // namespace
