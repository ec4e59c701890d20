// The receivers of a notification, their threads, and changes during its
// delivery.
#include "Foundation/Threads/NotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using NS::Notification;

class NotificationCenterTest : public ::testing::Test {
protected:
  auto note(const std::string &text) {
    return [this, text](const Notification &) { told.push_back(text); };
  }

  std::unique_ptr<NS::NotificationCenter> center = NS::NotificationCenter::create();
  std::vector<std::string> told;
};

TEST_F(NotificationCenterTest, tellsObserversOfTheNameInOrder) {
  center->addObserverForName("a", nullptr, note("first"));
  center->addObserverForName("b", nullptr, note("other"));
  center->addObserverForName(std::nullopt, nullptr, note("every"));
  center->addObserverForName("a", nullptr, note("last"));
  center->postNotificationName("a", nullptr);
  EXPECT_EQ(told, (std::vector<std::string>{"first", "every", "last"}));
}

TEST_F(NotificationCenterTest, comparesTheObjectByIdentity) {
  auto mine = std::make_shared<NS::Object>();
  center->addObserverForName("a", mine, note("mine"));
  center->postNotificationName("a", std::make_shared<NS::Object>());
  center->postNotificationName("a", nullptr);
  EXPECT_TRUE(told.empty());
  center->postNotificationName("a", mine);
  EXPECT_EQ(told, (std::vector<std::string>{"mine"}));
  EXPECT_EQ(mine.use_count(), 1);
}

TEST_F(NotificationCenterTest, passesOnTheNotification) {
  auto object = std::make_shared<NS::Object>();
  Notification seen;
  center->addObserverForName("a", nullptr, [&](const Notification &given) { seen = given; });
  center->postNotificationName("a", object);
  EXPECT_EQ(seen.name, "a");
  EXPECT_EQ(seen.object, object);
}

TEST_F(NotificationCenterTest, tellsNoRemovedObserver) {
  auto token = center->addObserverForName("a", nullptr, note("removed"));
  center->removeObserver(token);
  center->removeObserver(token);
  center->removeObserver(nullptr);
  center->postNotificationName("a", nullptr);
  EXPECT_TRUE(told.empty());
}

TEST_F(NotificationCenterTest, letsAnObserverRemoveItselfAndTheNextWhilePosting) {
  std::shared_ptr<NS::Object> self, next;
  self = center->addObserverForName("a", nullptr, [&](const Notification &) {
    told.push_back("self");
    center->removeObserver(self);
    center->removeObserver(next);
  });
  next = center->addObserverForName("a", nullptr, note("next"));
  center->addObserverForName("a", nullptr, note("after"));
  center->postNotificationName("a", nullptr);
  center->postNotificationName("a", nullptr);
  EXPECT_EQ(told, (std::vector<std::string>{"self", "after", "after"}));
}

TEST_F(NotificationCenterTest, tellsAnObserverAddedWhilePostingFromTheNextTimeOn) {
  std::shared_ptr<NS::Object> token;
  token = center->addObserverForName("a", nullptr, [&](const Notification &) {
    center->removeObserver(token);
    center->addObserverForName("a", nullptr, note("late"));
  });
  center->postNotificationName("a", nullptr);
  EXPECT_TRUE(told.empty());
  center->postNotificationName("a", nullptr);
  EXPECT_EQ(told, (std::vector<std::string>{"late"}));
}

TEST_F(NotificationCenterTest, deliversOnThePostingThread) {
  std::thread::id delivered;
  center->addObserverForName("a", nullptr,
                             [&](const Notification &) { delivered = std::this_thread::get_id(); });
  std::thread::id posting;
  std::thread([&] {
    posting = std::this_thread::get_id();
    center->postNotificationName("a", nullptr);
  }).join();
  EXPECT_EQ(delivered, posting);
}

TEST_F(NotificationCenterTest, mayBeUsedFromManyThreads) {
  std::atomic<int> heard{0};
  center->addObserverForName("a", nullptr, [&](const Notification &) { ++heard; });
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        auto token = center->addObserverForName("a", nullptr, [](const Notification &) {});
        center->postNotificationName("a", nullptr);
        center->removeObserver(token);
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(heard, 8 * 200);
}

} // namespace
