// The gate: threads that wait, their release, and that the gate loses none of
// them.
#include "Additions/KWConditionalLock.h"

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"
#include "Support/AssertionRecorder.h"
#include "Support/FakeClock.h"
#include "Support/LogRecorder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using kw::KWBoolConditionalLock;
using kw::KWConditionalLock;
using NS::Number;

// Returns when so many threads are recorded as waiting.
void untilWaiting(const KWConditionalLock &lock, std::size_t count) {
  while (lock.groupsToLeaveOnUnlock().size() < count)
    std::this_thread::yield();
}

void joinAll(std::vector<std::thread> &threads) {
  for (std::thread &thread : threads)
    thread.join();
  threads.clear();
}

void expectBalanced(const KWConditionalLock::Groups &groups) {
  for (const auto &group : groups)
    EXPECT_EQ(group->count(), 0U);
}

TEST(KWBoolConditionalLock, isOpenAtFirst) {
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  EXPECT_FALSE(lock->isLocked());
  EXPECT_FALSE(lock->boolValue());
  ASSERT_TRUE(lock->value());
  EXPECT_TRUE(lock->value()->isEqual(*Number::numberWithBool(false)));
  lock->waitForUnlock();
  lock->waitForUnlockWithTimeout(0);
  lock->waitForUnlockWithTimeout(600);
  EXPECT_TRUE(lock->groupsToLeaveOnUnlock().empty());
}

TEST(KWBoolConditionalLock, keepsItsValueAsANumber) {
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  EXPECT_TRUE(lock->isLocked());
  EXPECT_TRUE(lock->boolValue());
  EXPECT_TRUE(lock->value()->isEqual(*Number::numberWithBool(true)));
  lock->setValue(Number::numberWithLongLong(0));
  EXPECT_FALSE(lock->isLocked());
  lock->setValue(Number::numberWithDouble(0.5));
  EXPECT_TRUE(lock->isLocked());
}

TEST(KWBoolConditionalLock, releasesThreeWaitersByOneUnlock) {
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i)
    waiters.emplace_back([&] { lock->waitForUnlock(); });
  untilWaiting(*lock, 3);
  KWConditionalLock::Groups groups = lock->groupsToLeaveOnUnlock();
  for (const auto &group : groups)
    EXPECT_EQ(group->count(), 1U);
  lock->setBoolValue(false);
  joinAll(waiters);
  expectBalanced(groups);
  EXPECT_TRUE(lock->groupsToLeaveOnUnlock().empty());
}

TEST(KWBoolConditionalLock, waitsHalfASecondByTheClockOnTheWall) {
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  auto start = std::chrono::steady_clock::now();
  lock->waitForUnlockWithTimeout(0.5);
  // The two clocks may run a little apart; the host decides how late it comes.
  EXPECT_GE(std::chrono::steady_clock::now() - start, 400ms);
  EXPECT_TRUE(lock->isLocked());
}

TEST(KWBoolConditionalLock, waitsUntilTheWallClockDeadline) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  NS::WallTime start = clock.wallTime();
  lock->waitForUnlockWithTimeout(0.5);
  ASSERT_TRUE(clock.wallDeadline());
  EXPECT_EQ(clock.wallDeadline()->since1970 - start.since1970, 500ms);
  EXPECT_FALSE(clock.monotonicDeadline());
}

TEST(KWBoolConditionalLock, waitsWithoutADeadlineForATimeOfZero) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  std::thread waiter([&] { lock->waitForUnlockWithTimeout(0); });
  untilWaiting(*lock, 1);
  lock->setBoolValue(false);
  waiter.join();
  EXPECT_EQ(clock.wallReads(), 0);
}

TEST(KWBoolConditionalLock, leavesTheGroupOfAWaiterThatGaveUpOnce) {
  kwtest::FakeClock clock;
  NS::ScopedOverride<NS::Clock> override(clock);
  kwtest::LogRecorder log;
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  lock->waitForUnlockWithTimeout(0.5);
  EXPECT_TRUE(lock->isLocked());
  KWConditionalLock::Groups groups = lock->groupsToLeaveOnUnlock();
  ASSERT_EQ(groups.size(), 1U);
  EXPECT_EQ((*groups.begin())->count(), 1U);
  lock->setBoolValue(false);
  lock->setBoolValue(true);
  lock->setBoolValue(false);
  expectBalanced(groups);
  EXPECT_TRUE(lock->groupsToLeaveOnUnlock().empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST(KWBoolConditionalLock, setTwiceAndOpenedOnceReleasesItsWaitersOnce) {
  kwtest::LogRecorder log;
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  std::thread waiter([&] { lock->waitForUnlock(); });
  untilWaiting(*lock, 1);
  KWConditionalLock::Groups groups = lock->groupsToLeaveOnUnlock();
  lock->setBoolValue(true);
  EXPECT_EQ(lock->groupsToLeaveOnUnlock(), groups);
  EXPECT_EQ((*groups.begin())->count(), 1U);
  lock->setBoolValue(false);
  lock->setBoolValue(false);
  waiter.join();
  expectBalanced(groups);
  EXPECT_TRUE(log.lines().empty());
}

TEST(KWBoolConditionalLock, takesATimeBeyondTheEndOfTimeForNoLimit) {
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  for (double seconds :
       {1e300, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    lock->setBoolValue(true);
    std::thread waiter([&] { lock->waitForUnlockWithTimeout(seconds); });
    untilWaiting(*lock, 1);
    lock->setBoolValue(false);
    waiter.join();
  }
}

TEST(KWBoolConditionalLock, failsTheCastOfAValueOfAnotherClass) {
  kwtest::LogRecorder log;
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  auto text = NS::String::stringWithString("yes");
  EXPECT_THROW(lock->setValue(text), NS::Exception);
  EXPECT_EQ(lock->value(), text);
  EXPECT_THROW(lock->boolValue(), NS::Exception);
  EXPECT_FALSE(lock->isLocked());
  // The monitor is free again.
  std::thread([&] { lock->setBoolValue(true); }).join();
  EXPECT_TRUE(lock->isLocked());
}

TEST(KWBoolConditionalLock, isOpenForAValueOfAnotherClassShouldTheHandlerReturn) {
  kwtest::AssertionRecorder recorder;
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  lock->setValue(NS::String::stringWithString("yes"));
  EXPECT_FALSE(lock->isLocked());
  ASSERT_EQ(recorder.failures.size(), 1U);
  EXPECT_EQ(recorder.failures[0], (kwtest::AssertionFailure{"Sources/Additions/NSObjectAdditions",
                                                            "Did fail to cast yes to NSNumber"}));
}

TEST(KWConditionalLock, ofTheBaseClassIsNeverClosedByAValue) {
  auto lock = KWConditionalLock::create();
  EXPECT_FALSE(lock->isLocked());
  EXPECT_EQ(lock->value(), nullptr);
  lock->setValue(Number::numberWithBool(true));
  EXPECT_FALSE(lock->isLocked());
  EXPECT_TRUE(lock->value()->isEqual(*Number::numberWithBool(true)));
}

TEST(KWConditionalLock, closedFromOutsideIsOpenedByTheNextValue) {
  auto lock = KWConditionalLock::create();
  lock->setLocked(true);
  EXPECT_TRUE(lock->isLocked());
  std::thread waiter([&] { lock->waitForUnlock(); });
  untilWaiting(*lock, 1);
  lock->setValue(nullptr);
  waiter.join();
  EXPECT_FALSE(lock->isLocked());
}

TEST(KWConditionalLock, openedFromOutsideReleasesItsWaiters) {
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  lock->setBoolValue(true);
  std::thread waiter([&] { lock->waitForUnlock(); });
  untilWaiting(*lock, 1);
  lock->setLocked(false);
  waiter.join();
  EXPECT_TRUE(lock->groupsToLeaveOnUnlock().empty());
}

// Closed from the first on, and while its number is odd.
class OddLock : public KWConditionalLock {
protected:
  void setupInitialValues() override { setValue(Number::numberWithLongLong(1)); }
  bool shouldLockForValue(const std::shared_ptr<NS::Object> &value) override {
    return static_cast<const Number &>(*value).longLongValue() % 2 != 0;
  }
};

TEST(KWConditionalLock, letsADerivedClassDecide) {
  auto lock = KWConditionalLock::create<OddLock>();
  EXPECT_TRUE(lock->isLocked());
  EXPECT_EQ(lock->className(), "OddLock");
  lock->setValue(Number::numberWithLongLong(2));
  EXPECT_FALSE(lock->isLocked());
  lock->setValue(Number::numberWithLongLong(3));
  EXPECT_TRUE(lock->isLocked());
}

TEST(KWConditionalLock, isClosedAtFirstIfItClosesWithoutAValue) {
  class NeedsAValue : public KWConditionalLock {
  protected:
    bool shouldLockForValue(const std::shared_ptr<NS::Object> &value) override { return !value; }
  };
  auto lock = KWConditionalLock::create<NeedsAValue>();
  EXPECT_TRUE(lock->isLocked());
  lock->setValue(Number::numberWithBool(false));
  EXPECT_FALSE(lock->isLocked());
}

TEST(KWConditionalLock, letsASetterInWhileThreadsWait) {
  auto lock = KWConditionalLock::create<OddLock>();
  std::thread waiter([&] { lock->waitForUnlock(); });
  untilWaiting(*lock, 1);
  lock->setValue(Number::numberWithLongLong(3));
  EXPECT_TRUE(lock->isLocked());
  EXPECT_EQ(lock->groupsToLeaveOnUnlock().size(), 1U);
  lock->setValue(Number::numberWithLongLong(4));
  waiter.join();
}

TEST(KWConditionalLock, takesItsGroupsFromOutside) {
  auto lock = KWConditionalLock::create<OddLock>();
  auto group = NS::DispatchGroup::create();
  group->enter();
  lock->setGroupsToLeaveOnUnlock({group});
  lock->setValue(Number::numberWithLongLong(2));
  EXPECT_EQ(group->count(), 0U);
}

TEST(KWConditionalLock, leavesGroupsFromOutsideWhenItOpensAgain) {
  auto lock = KWConditionalLock::create();
  auto group = NS::DispatchGroup::create();
  group->enter();
  lock->setGroupsToLeaveOnUnlock({group});
  lock->setLocked(false);
  EXPECT_EQ(group->count(), 1U) << "it was open already";
  lock->setLocked(true);
  EXPECT_EQ(group->count(), 1U);
  lock->setLocked(false);
  EXPECT_EQ(group->count(), 0U);
}

TEST(KWConditionalLock, losesNoneOfSixtyFourWaitersWithAndWithoutLimits) {
  kwtest::LogRecorder log;
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  for (int round = 0; round < 10; ++round) {
    lock->setBoolValue(true);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 64; ++i)
      waiters.emplace_back([&, i] { lock->waitForUnlockWithTimeout(i % 2 ? -1.0 : 600.0); });
    untilWaiting(*lock, 64);
    KWConditionalLock::Groups groups = lock->groupsToLeaveOnUnlock();
    EXPECT_EQ(groups.size(), 64U);
    lock->setBoolValue(false);
    joinAll(waiters);
    expectBalanced(groups);
    EXPECT_TRUE(lock->groupsToLeaveOnUnlock().empty());
  }
  EXPECT_TRUE(log.lines().empty());
}

TEST(KWConditionalLock, losesNoThreadInTenThousandRoundsOfLockingAndUnlocking) {
  kwtest::LogRecorder log;
  auto lock = KWConditionalLock::create<KWBoolConditionalLock>();
  std::atomic<bool> over{false};
  std::atomic<int> waits{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 64; ++i)
    waiters.emplace_back([&, i] {
      while (!over) {
        // A third gives up at once, as good as at a random moment.
        lock->waitForUnlockWithTimeout(i % 3 == 0 ? 1e-9 : i % 3 == 1 ? -1.0 : 600.0);
        ++waits;
        std::this_thread::yield();
      }
    });
  for (int round = 0; round < 10000; ++round) {
    lock->setBoolValue(true);
    if (round % 64 == 0)
      untilWaiting(*lock, 1);
    lock->setBoolValue(false);
  }
  over = true;
  lock->setBoolValue(false);
  joinAll(waiters);
  EXPECT_GT(waits, 0);
  EXPECT_FALSE(lock->isLocked());
  EXPECT_TRUE(lock->groupsToLeaveOnUnlock().empty());
  EXPECT_TRUE(log.lines().empty());
}

} // namespace
