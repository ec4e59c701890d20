// The lock that belongs to an object's identity.
#include "Foundation/Threads/Monitor.h"

#include "Foundation/Threads/Dispatch.h"
#include "Support/MemoryLimit.h"
#include "Support/Sanitizers.h"
#include "Support/ThreadState.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

TEST(Monitor, keepsThreadsApartOnOneObject) {
  NS::Object object;
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < 1000; ++round)
        NS::synchronized(object, [&] { ++counter; });
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(counter, 8000);
}

TEST(Monitor, letsAnotherThreadWaitUntilItIsGivenBack) {
  NS::Object object;
  std::atomic<int> identifier = 0;
  std::atomic<bool> hasEntered = false;
  auto held = std::make_unique<NS::Monitor>(object);
  std::thread other([&] {
    identifier = ::gettid();
    NS::synchronized(object, [&] { hasEntered = true; });
  });
  while (!hasEntered && (identifier == 0 || !kwtest::isAsleep(identifier)))
    std::this_thread::yield();
  EXPECT_FALSE(hasEntered);
  held.reset();
  other.join();
  EXPECT_TRUE(hasEntered);
}

TEST(Monitor, mayBeTakenAgainByItsHolder) {
  NS::Object object;
  int depth = NS::synchronized(object, [&] {
    NS::Monitor again(object);
    return NS::synchronized(object, [] { return 3; });
  });
  EXPECT_EQ(depth, 3);
}

TEST(Monitor, ofOneObjectDoesNotHoldUpAnother) {
  NS::Object one, other;
  NS::Monitor held(one);
  int seen = 0;
  std::thread([&] { seen = NS::synchronized(other, [] { return 1; }); }).join();
  EXPECT_EQ(seen, 1);
}

TEST(Monitor, isFreeAgainAfterAnException) {
  NS::Object object;
  EXPECT_THROW(NS::synchronized(object, [] { throw 1; }), int);
  int seen = 0;
  std::thread([&] { seen = NS::synchronized(object, [] { return 1; }); }).join();
  EXPECT_EQ(seen, 1);
}

TEST(Monitor, takesMemoryOnlyWhileItIsHeld) {
  if (kwtest::addsMemory)
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit in the limit";
  std::vector<NS::Object> objects(100'000);
  kwtest::MemoryLimit limit(1u << 20);
  EXPECT_NO_THROW({
    for (const NS::Object &object : objects)
      NS::synchronized(object, [] {});
  });
}

} // namespace
