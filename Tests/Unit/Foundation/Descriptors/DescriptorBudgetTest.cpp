// Shares of the descriptor table: the threads that get one, and those that
// wait.
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Files/FileFlags.h"
#include "Foundation/Trees/FileManager.h"
#include "Foundation/Trees/SecureRemoval.h"
#include "Foundation/Walking/FTS.h"

#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>

#include <future>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using NS::DescriptorBudget;
using Share = NS::DescriptorBudget::Share;

// Returns once so many threads wait. The budget sends no notice of that.
void awaitWaiting(const DescriptorBudget &budget, std::size_t count) {
  while (budget.waiting() != count)
    std::this_thread::yield();
}

TEST(DescriptorBudget, givesAShareEvenWhereTheTableServesNone) {
  DescriptorBudget budget([] { return std::size_t{0}; });
  EXPECT_TRUE(budget.take());
  EXPECT_EQ(budget.inUse(), 0u);
}

TEST(DescriptorBudget, letsTheNextWaitUntilAShareComesBack) {
  DescriptorBudget budget([] { return std::size_t{2}; });
  std::optional<Share> first = budget.take();
  Share second = budget.take();
  auto third = std::async(std::launch::async, [&] { return budget.take(); });
  awaitWaiting(budget, 1);
  EXPECT_EQ(budget.inUse(), 2u);
  first.reset();
  EXPECT_TRUE(third.get());
  EXPECT_EQ(budget.waiting(), 0u);
}

TEST(DescriptorBudget, servesThoseWhoWaitInTheOrderOfAsking) {
  DescriptorBudget budget([] { return std::size_t{1}; });
  std::optional<Share> held = budget.take();
  std::vector<int> order;
  std::vector<std::thread> threads;
  for (int number = 0; number < 5; ++number) {
    threads.emplace_back([&, number] {
      Share share = budget.take();
      order.push_back(number); // one holds the only share
    });
    awaitWaiting(budget, static_cast<std::size_t>(number) + 1);
  }
  held.reset();
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(DescriptorBudget, letsGoOfACancelledOneThatIsNotTheFirst) {
  DescriptorBudget budget([] { return std::size_t{1}; });
  std::optional<Share> held = budget.take();
  auto first = std::async(std::launch::async, [&] { return budget.take(); });
  awaitWaiting(budget, 1);
  NS::Progress progress;
  auto second = std::async(std::launch::async, [&] {
    NS::Progress::Scope scope(progress);
    return budget.take();
  });
  awaitWaiting(budget, 2);
  progress.cancel();
  EXPECT_FALSE(second.get());
  EXPECT_EQ(budget.waiting(), 1u);
  held.reset();
  EXPECT_TRUE(first.get());
  EXPECT_EQ(budget.inUse(), 0u);
}

TEST(DescriptorBudget, keepsHalfOfItAndThoseWhoWaitFromSpareShares) {
  std::atomic<std::size_t> capacity = 8;
  DescriptorBudget budget([&] { return capacity.load(); });
  Share one = budget.take();
  Share spare = budget.takeSpare(3);
  EXPECT_TRUE(spare);
  EXPECT_EQ(budget.inUse(), 4u);
  EXPECT_FALSE(budget.takeSpare(1)) << "five of eight are more than half";
  capacity = 3;
  auto waiting = std::async(std::launch::async, [&] { return budget.take(); });
  awaitWaiting(budget, 1);
  capacity = 100;
  // Whether the other has been served by now or not, nothing is lost.
  EXPECT_TRUE(waiting.get());
  EXPECT_TRUE(budget.takeSpare(2));
}

TEST(DescriptorBudget, hasAShareMovedRatherThanCopied) {
  DescriptorBudget budget([] { return std::size_t{4}; });
  Share share = budget.take();
  Share other = std::move(share);
  EXPECT_EQ(budget.inUse(), 1u);
  other = Share();
  EXPECT_EQ(budget.inUse(), 0u);
}

TEST(DescriptorBudget, leavesAnEighthOfTheTableToTheAgentItself) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              rlimit limit{800, 800};
              ::setrlimit(RLIMIT_NOFILE, &limit);
              return std::to_string(DescriptorBudget::requestsServed());
            }),
            std::to_string(300 / DescriptorBudget::perRequest));
}

TEST(DescriptorBudget, servesOneRequestEvenWithAlmostNoTable) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              rlimit limit{8, 8};
              ::setrlimit(RLIMIT_NOFILE, &limit);
              return std::to_string(DescriptorBudget::requestsServed());
            }),
            "1");
}

TEST(DescriptorBudget, ofWalksIsHalfOfTheTable) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              rlimit limit{4 * DescriptorBudget::perWalk, 4 * DescriptorBudget::perWalk};
              ::setrlimit(RLIMIT_NOFILE, &limit);
              DescriptorBudget &walks = DescriptorBudget::ofWalks();
              if (walks.takeSpare(2))
                return "both of two shares are spare";
              return walks.takeSpare(1) ? "" : "one of two shares is not spare";
            }),
            "");
}

TEST(WalkShare, isOneForWalksWithinEachOther) {
  DescriptorBudget &walks = DescriptorBudget::ofWalks();
  std::size_t before = walks.inUse();
  {
    NS::WalkShare outer;
    NS::WalkShare inner;
    EXPECT_EQ(walks.inUse(), before + 1);
  }
  EXPECT_EQ(walks.inUse(), before);
}

TEST(WalkShare, isHeldByTheLastOfThemOnAnyThread) {
  DescriptorBudget &walks = DescriptorBudget::ofWalks();
  std::size_t before = walks.inUse();
  auto outer = std::make_unique<NS::WalkShare>();
  auto inner = std::make_unique<NS::WalkShare>();
  outer.reset();
  EXPECT_EQ(walks.inUse(), before + 1);
  std::thread([&] { inner.reset(); }).join();
  EXPECT_EQ(walks.inUse(), before);
  NS::WalkShare again;
  EXPECT_EQ(walks.inUse(), before + 1);
}

// Whether the walk waits for a share while this process has none to give, and
// goes on then. In a process of its own, for its limit of descriptors.
std::string waitsForItsTurn(const std::function<void()> &walk) {
  return kwtest::inForkedChild([&]() -> std::string {
    rlimit limit{DescriptorBudget::perWalk * 2, DescriptorBudget::perWalk * 2};
    ::setrlimit(RLIMIT_NOFILE, &limit);
    DescriptorBudget &walks = DescriptorBudget::ofWalks();
    std::optional<Share> only = walks.take();
    auto walking = std::async(std::launch::async, walk);
    while (walks.waiting() == 0)
      if (walking.wait_for(std::chrono::milliseconds(1)) == std::future_status::ready)
        return "it did not wait";
    only.reset();
    walking.wait();
    return walks.inUse() == 0 ? "" : "it has kept its share";
  });
}

TEST(WalkShare, isTakenByEveryWalk) {
  kwtest::ScratchFolder scratch;
  std::string from = scratch.path("from"), to = scratch.path("to");
  std::filesystem::create_directories(from + "/inner");
  NS::FileManager &manager = NS::FileManager::defaultManager();
  EXPECT_EQ(waitsForItsTurn([&] { manager.enumeratorAtPath(from)->nextObject(); }), "");
  EXPECT_EQ(waitsForItsTurn([&] { NS::FTS::shared().open(from, NS::FTSOption::PHYSICAL); }), "");
  EXPECT_EQ(waitsForItsTurn([&] {
              NS::FileFlags::shared().clearBeneath(from, NS::UF_IMMUTABLE_FLAG,
                                                   [](const std::string &, int) {});
            }),
            "");
  EXPECT_EQ(waitsForItsTurn([&] { manager.copyItemAtPath(from, to, nullptr); }), "");
  EXPECT_EQ(waitsForItsTurn([&] { manager.moveItemAtPath(to, to + "2", nullptr); }), "");
  EXPECT_EQ(waitsForItsTurn([&] {
              NS::SecureRemoval::shared().removefile(to + "2", NS::REMOVEFILE_RECURSIVE_FLAG);
            }),
            "");
  EXPECT_EQ(waitsForItsTurn([&] { manager.removeItemAtPath(from, nullptr); }), "");
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

} // namespace
