// Counts the live objects of each class after each repetition of the tests. Where a count
// grows in one repetition after another, a test or the code under it releases too little;
// where it falls, too much. Once or twice a count changes by itself: the platform keeps
// some objects for good, and a thread that ends still has others.
#include <Foundation/NSDebug.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

class BalanceAfterRepetitions final : public testing::EmptyTestEventListener {
  using Counts = std::map<std::string, int>;
  static constexpr int tooMany = 4; // repetitions in a row

public:
  void OnTestIterationEnd(const testing::UnitTest &, int iteration) override {
    Counts now = liveObjects();
    for (const auto &[name, count] : now) {
      int change = count - before_[name];
      grown_[name] = change > 0 ? grown_[name] + 1 : 0;
      fallen_[name] = change < 0 ? fallen_[name] + 1 : 0;
      EXPECT_LT(grown_[name], tooMany) << name << " after repetition " << iteration;
      EXPECT_LT(fallen_[name], tooMany) << name << " after repetition " << iteration;
    }
    before_ = now;
  }

private:
  static Counts liveObjects() {
    Counts counts;
    for (Class *each = GSDebugAllocationClassList(); each && *each; ++each)
      counts[class_getName(*each)] = GSDebugAllocationCount(*each);
    counts.erase("NSProgressInternal"); // GNUstep's NSProgress never releases its own
    return counts;
  }

  Counts before_, grown_, fallen_;
};

class CountsObjects final : public testing::Environment {
public:
  CountsObjects() {
    GSDebugAllocationActive(YES);
    testing::UnitTest::GetInstance()->listeners().Append(new BalanceAfterRepetitions);
  }
};

const auto *const added = testing::AddGlobalTestEnvironment(new CountsObjects);

} // namespace
