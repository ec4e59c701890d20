// How many threads may help, and pieces of work that they share.
#include "Foundation/Threads/Internal/Helpers.h"

#include "Foundation/Threads/Internal/Processors.h"
#include "Foundation/Threads/Internal/SharedWork.h"

#include "Support/FakeProcessors.h"
#include "Support/Signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <sched.h>
#include <set>
#include <thread>
#include <vector>

namespace {

using kwtest::FakeProcessors;
using kwtest::Signal;
using NS::HelperPlace;
using NS::Helpers;
using NS::SharedWork;

void waitForSomething() {
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// Does one piece of work that waits.
void wait(HelperPlace &place) {
  place.begin();
  waitForSomething();
  place.end();
}

// Does so many pieces that none is remembered that waited.
void run(HelperPlace &place) {
  for (int piece = 0; piece < 64; ++piece) {
    place.begin();
    place.end();
  }
}

TEST(Helpers, leaveOneProcessorToEachOperation) {
  Helpers one(2);
  one.want();
  one.want();
  HelperPlace place = one.take();
  EXPECT_TRUE(place);
  EXPECT_FALSE(one.take());
  EXPECT_TRUE(place.mayStay());
  EXPECT_FALSE(one.isCrowded());
  {
    Helpers two(2);
    two.want();
    EXPECT_FALSE(two.take());
    EXPECT_FALSE(place.mayStay());
    EXPECT_TRUE(one.isCrowded());
    place.rest();
    EXPECT_FALSE(one.take());
  }
  EXPECT_TRUE(one.take());
}

TEST(Helpers, areNoneOnOneProcessorWhileItIsUsed) {
  Helpers alone(1);
  alone.want();
  EXPECT_FALSE(alone.take());
  wait(alone.own());
  EXPECT_TRUE(alone.take());
}

TEST(Helpers, areMoreThanProcessorsWhileTheyWaitForADevice) {
  FakeProcessors processors(2, 5);
  Helpers helpers(2);
  helpers.want();
  std::vector<HelperPlace> places;
  while (HelperPlace place = helpers.take()) {
    wait(place);
    places.push_back(std::move(place));
  }
  EXPECT_EQ(places.size(), 4u) << "with the operation's own thread, five";
  for (const HelperPlace &place : places)
    EXPECT_TRUE(place.mayStay());
  EXPECT_TRUE(helpers.isCrowded());
}

TEST(Helpers, giveWayWhenNothingWaitsAnyMore) {
  FakeProcessors processors(2, 5);
  Helpers helpers(2);
  helpers.want();
  HelperPlace first = helpers.take();
  wait(first);
  HelperPlace second = helpers.take();
  ASSERT_TRUE(second);
  run(first);
  EXPECT_FALSE(first.mayStay());
  EXPECT_FALSE(second.mayStay());
  first.rest();
  EXPECT_TRUE(second.mayStay()) << "one of them is enough";
}

TEST(Helpers, countNoWaitBetweenPieces) {
  FakeProcessors processors(2, 5);
  Helpers helpers(2);
  helpers.want();
  HelperPlace place = helpers.take();
  waitForSomething();
  place.begin();
  place.end();
  EXPECT_FALSE(helpers.take());
}

TEST(Helpers, countAWaitForTwoOfThePiecesThatAreLookedAt) {
  FakeProcessors processors(2, 5);
  Helpers helpers(2);
  helpers.want();
  HelperPlace place = helpers.take();
  wait(place);
  place.begin();
  place.end();
  HelperPlace other = helpers.take();
  EXPECT_TRUE(other) << "the piece before the last one waited";
}

TEST(Helpers, areFewOnManyProcessorsWhileTheyRun) {
  Helpers helpers(64);
  helpers.want();
  std::vector<HelperPlace> places;
  while (HelperPlace place = helpers.take())
    places.push_back(std::move(place));
  EXPECT_EQ(places.size(), 3u);
}

TEST(Helpers, areAsManyAsADeviceCanUseOnManyProcessors) {
  FakeProcessors processors(64, 5);
  Helpers helpers(64);
  helpers.want();
  std::vector<HelperPlace> places;
  while (HelperPlace place = helpers.take()) {
    wait(place);
    places.push_back(std::move(place));
  }
  EXPECT_EQ(places.size(), 4u);
}

TEST(Helpers, forgetTheWaitsOfAPlaceThatIsTakenAnew) {
  FakeProcessors processors(2, 5);
  Helpers helpers(2);
  helpers.want();
  HelperPlace place = helpers.take();
  wait(place);
  place.rest();
  place = helpers.take();
  place.begin();
  place.end();
  EXPECT_FALSE(helpers.take());
  wait(place);
  EXPECT_TRUE(helpers.take()) << "its second piece is looked at as well";
}

TEST(Helpers, countNoWaitWithoutAPlace) {
  HelperPlace none;
  wait(none);
  EXPECT_FALSE(none);
}

TEST(Helpers, giveAPlaceBackWhenTheyGetAnother) {
  Helpers helpers(3);
  helpers.want();
  HelperPlace one = helpers.take();
  HelperPlace other = helpers.take();
  EXPECT_FALSE(helpers.take());
  one = std::move(other);
  EXPECT_TRUE(helpers.take());
}

TEST(Helpers, giveTheirPlacesBack) {
  Helpers helpers(2);
  helpers.want();
  {
    HelperPlace place = helpers.take();
    wait(place);
    HelperPlace moved = std::move(place);
    EXPECT_FALSE(place);
    EXPECT_TRUE(moved);
  }
  HelperPlace again = helpers.take();
  EXPECT_TRUE(again);
  EXPECT_FALSE(helpers.take()) << "nothing is left of the wait";
}

TEST(Processors, areThoseThatTheCallingThreadMayRunOn) {
  unsigned usable = 0;
  std::thread([&] {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(::sched_getcpu()), &one);
    ::sched_setaffinity(0, sizeof one, &one);
    usable = NS::Processors::real().usable();
  }).join();
  EXPECT_EQ(usable, 1u);
}

TEST(WaitsOfThisThread, growWhenItSleeps) {
  std::uint64_t before = NS::waitsOfThisThread();
  waitForSomething();
  EXPECT_GT(NS::waitsOfThisThread(), before);
}

TEST(SharedWork, doesEachPieceOnceAndFinishesEachPortion) {
  std::atomic<int> done{0};
  auto portion = std::make_shared<SharedWork::Portion>();
  SharedWork work(4);
  for (int round = 0; round < 50; ++round) {
    int offered = 0;
    for (int piece = 0; piece < 40; ++piece)
      offered += work.offer(portion, [&](HelperPlace &) { ++done; }) ? 1 : 0;
    EXPECT_GT(offered, 0);
    work.finish(*portion);
    EXPECT_EQ(done.exchange(0), offered);
  }
}

TEST(SharedWork, wakesAnIdleHelperForEachPiece) {
  auto portion = std::make_shared<SharedWork::Portion>();
  SharedWork work(2);
  for (int round = 0; round < 50; ++round) {
    Signal done;
    while (!work.offer(portion, [done](HelperPlace &) { done.raise(); }))
      std::this_thread::yield();
    ASSERT_TRUE(done.isRaisedWithin(std::chrono::seconds(10))) << round;
  }
  work.finish(*portion);
}

TEST(SharedWork, hasRoomAsLongAsItTakesPieces) {
  Signal hasBegun, goesOn;
  auto portion = std::make_shared<SharedWork::Portion>();
  SharedWork work(2);
  ASSERT_TRUE(work.offer(portion, [hasBegun, goesOn](HelperPlace &) {
    hasBegun.raise();
    goesOn.wait();
  }));
  hasBegun.wait(); // the only helper takes no other piece now
  while (work.hasRoom())
    ASSERT_TRUE(work.offer(portion, [](HelperPlace &) {}));
  EXPECT_FALSE(work.offer(portion, [](HelperPlace &) {}));
  goesOn.raise();
  work.finish(*portion);
}

TEST(SharedWork, leavesThePlacesOfIdleHelpersToOthers) {
  auto portion = std::make_shared<SharedWork::Portion>();
  SharedWork work(3);
  ASSERT_TRUE(work.offer(portion, [](HelperPlace &) {}));
  work.finish(*portion);
  Helpers other(3);
  other.want();
  while (!other.take())
    std::this_thread::yield();
}

TEST(SharedWork, takesNoPieceWithoutAHelper) {
  auto portion = std::make_shared<SharedWork::Portion>();
  SharedWork work(1);
  EXPECT_FALSE(work.offer(portion, [](HelperPlace &) { ADD_FAILURE(); }));
  work.finish(*portion);
}

TEST(SharedWork, isFinishedByItsOwnThreadWhenTheHelpersAreBusy) {
  std::atomic<bool> isHeld{true};
  std::atomic<bool> hasBegun{false};
  std::set<std::thread::id> threads;
  auto slow = std::make_shared<SharedWork::Portion>();
  auto quick = std::make_shared<SharedWork::Portion>();
  SharedWork work(2);
  ASSERT_TRUE(work.offer(slow, [&](HelperPlace &) {
    hasBegun = true;
    while (isHeld)
      std::this_thread::yield();
  }));
  while (!hasBegun)
    std::this_thread::yield();
  for (int piece = 0; piece < 3; ++piece)
    ASSERT_TRUE(
        work.offer(quick, [&](HelperPlace &) { threads.insert(std::this_thread::get_id()); }));
  work.finish(*quick);
  EXPECT_EQ(threads, std::set{std::this_thread::get_id()});
  isHeld = false;
  work.finish(*slow);
}

TEST(SharedWork, dropsPiecesThatNoThreadBeganWhenItEnds) {
  auto held = std::make_shared<int>();
  std::weak_ptr<int> watched = held;
  std::atomic<bool> hasBegun{false};
  auto portion = std::make_shared<SharedWork::Portion>();
  {
    SharedWork work(2);
    ASSERT_TRUE(work.offer(portion, [&](HelperPlace &) {
      hasBegun = true;
      while (!watched.expired())
        std::this_thread::yield();
    }));
    while (!hasBegun)
      std::this_thread::yield();
    ASSERT_TRUE(
        work.offer(portion, [held = std::move(held)](HelperPlace &) { ADD_FAILURE() << *held; }));
  }
  EXPECT_EQ(portion.use_count(), 1);
}

} // namespace
