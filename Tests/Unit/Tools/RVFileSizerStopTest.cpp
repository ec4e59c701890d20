// Scans that may be given up, and the index that may spare them.
#include "Tools/RVFileSizer.h"

#include "Support/FakeFTS.h"
#include "Support/LogRecorder.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Desktop/Metadata.h"
#include "Foundation/Values/Number.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>

namespace {

using kw::RVFileSizer;
using kwtest::FakeFTS;
using kwtest::LogRecorder;
using kwtest::ScratchFolder;
using NS::FTSInfo;
using Strings = std::vector<std::string>;

const RVFileSizer &sizer() {
  return RVFileSizer::shared();
}

// An index that knows one attribute of every path, or nothing.
class FakeIndex final : public NS::MetadataStore {
public:
  bool knowsItems = true;
  std::shared_ptr<NS::Object> attribute;
  Strings asked;
  std::function<void()> onCopy;

  std::unique_ptr<NS::MetadataItem> createItem(const std::string &path) override {
    std::lock_guard lock(mutex_);
    asked.push_back(path);
    return knowsItems ? std::make_unique<Item>(*this) : nullptr;
  }

private:
  struct Item final : NS::MetadataItem {
    explicit Item(FakeIndex &aStore) : store(aStore) {}
    std::shared_ptr<NS::Object> copyAttribute(const std::string &name) override {
      EXPECT_EQ(name, "kMDItemPhysicalSize");
      if (store.onCopy)
        store.onCopy();
      return store.attribute;
    }
    FakeIndex &store;
  };

  std::mutex mutex_;
  NS::ScopedOverride<NS::MetadataStore> override_{*this};
};

class RVFileSizerStop : public testing::Test {
protected:
  void SetUp() override { sizer().restorePathsToBeStopped(); }
  void TearDown() override { sizer().restorePathsToBeStopped(); }
};

TEST_F(RVFileSizerStop, measuresAnEmptyPathAsNothingWithoutLooking) {
  FakeFTS walk;
  FakeIndex index;
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(""), 0u);
  EXPECT_EQ(walk.opened, 0);
  EXPECT_TRUE(index.asked.empty());
}

TEST_F(RVFileSizerStop, measuresAsTheOtherWalkDoes) {
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    ScratchFolder scratch;
    kwtest::RandomTree tree(scratch.path(), seed, 60);
    ::sync();
    EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(scratch.path()),
              sizer().itemSizeAtPath(scratch.path()));
  }
}

TEST_F(RVFileSizerStop, logsEvenAMissingItem) {
  ScratchFolder scratch;
  LogRecorder log;
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(scratch.path("missing")), 0u);
  EXPECT_EQ(log.lines(), Strings{scratch.path("missing") + ": No such file or directory"});
}

TEST_F(RVFileSizerStop, logsAWalkThatCannotBeOpenedInItsOwnSpelling) {
  FakeFTS walk;
  walk.refuses = true;
  LogRecorder log;
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop("/some/path"), 0u);
  EXPECT_EQ(log.lines(), Strings{"Error openning file /some/path"});
}

TEST_F(RVFileSizerStop, keepsTheTotalOfAWalkThatCannotBeClosed) {
  FakeFTS walk;
  walk.raisesOnClose = true;
  walk.add("/file", FTSInfo::F, walk.top, {.blocks = 8});
  LogRecorder log;
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop("/file"), 4096u);
  EXPECT_EQ(log.lines(), Strings{"fts_close exception = cannot close"});
}

TEST_F(RVFileSizerStop, givesUpAtTheNextEntryAndRunsToTheEndTheNextTime) {
  FakeFTS walk;
  NS::FTSEntry &folder = walk.add("/r", FTSInfo::D, walk.top, {.blocks = 8});
  walk.add("/r/one", FTSInfo::F, folder, {.blocks = 8});
  walk.add("/r/two", FTSInfo::F, folder, {.blocks = 8});
  walk.again(folder, FTSInfo::DP);
  int read = 0;
  walk.onRead = [&read] {
    if (++read == 2)
      sizer().stopScanningForPath("/r");
  };
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop("/r"), 0u);
  EXPECT_EQ(read, 2);
  EXPECT_EQ(walk.closed, 1) << "a scan that is given up leaves nothing open";
  EXPECT_EQ(sizer().pathsToBeStopped(), Strings{});
  walk.top.number = folder.number = 0;
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop("/r"), 32u * 512);
}

TEST_F(RVFileSizerStop, endsTheNextScanWhenNoneIsUnderWay) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", std::string(5000, 'x'));
  ::sync();
  sizer().stopScanningForPath(path);
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(path), 0u);
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(path), 8192u);
}

TEST_F(RVFileSizerStop, leavesScansOfOtherPathsAndOtherWalksAlone) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", std::string(5000, 'x'));
  ::sync();
  sizer().stopScanningForPath(path + "/");
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(path), 8192u);
  sizer().stopScanningForPath(path);
  EXPECT_EQ(sizer().itemSizeAtPath(path), 8192u);
  EXPECT_EQ(sizer().pathsToBeStopped(), (Strings{path + "/", path}));
}

TEST_F(RVFileSizerStop, keepsOneRequestForAPathAskedTwice) {
  sizer().stopScanningForPath("/a");
  sizer().stopScanningForPath("/b");
  sizer().stopScanningForPath("/a");
  EXPECT_EQ(sizer().pathsToBeStopped(), (Strings{"/a", "/b"}));
}

TEST_F(RVFileSizerStop, takesNoRequestForNil) {
  sizer().stopScanningForPath(std::nullopt);
  EXPECT_EQ(sizer().pathsToBeStopped(), Strings{});
}

TEST_F(RVFileSizerStop, withdrawsEveryRequest) {
  sizer().stopScanningForPath("/a");
  sizer().stopScanningForPath("/b");
  sizer().restorePathsToBeStopped();
  EXPECT_EQ(sizer().pathsToBeStopped(), Strings{});
}

TEST_F(RVFileSizerStop, hasNoListBeforeTheFirstRequest) {
  // In a program run anew: the list is for ever, and other tests may have made
  // it already.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        if (sizer().pathsToBeStopped().has_value())
          std::exit(1);
        sizer().restorePathsToBeStopped();
        if (sizer().pathsToBeStopped().has_value())
          std::exit(2);
        sizer().stopScanningForPath(std::nullopt);
        std::exit(sizer().pathsToBeStopped() == Strings{} ? 0 : 3);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(RVFileSizerStop, endsAThousandScansAtAnyMoment) {
  ScratchFolder scratch(kwtest::quickFolder());
  kwtest::RandomTree tree(scratch.path(), 5, 300);
  std::uint64_t whole = sizer().itemSizeAtPath(scratch.path());
  std::size_t before = kwtest::openDescriptorCount();
  std::mutex mutex;
  std::condition_variable turn;
  int round = 0; // of the scanner; the stopper follows
  bool ended = false;
  std::thread stopper([&] {
    std::mt19937 random(1);
    for (int seen = 0;;) {
      {
        std::unique_lock lock(mutex);
        turn.wait(lock, [&] { return ended || round > seen; });
        if (ended)
          return;
        seen = round;
      }
      for (auto spins = random() % 200000; spins > 0; --spins)
        std::atomic_signal_fence(std::memory_order_seq_cst);
      sizer().stopScanningForPath(scratch.path());
    }
  });
  int stopped = 0;
  for (int scan = 0; scan < 1000; ++scan) {
    {
      std::lock_guard lock(mutex);
      ++round;
    }
    turn.notify_one();
    std::uint64_t size = sizer().itemSizeAtPathAbleToStop(scratch.path());
    EXPECT_TRUE(size == 0 || size == whole) << size;
    stopped += size == 0;
  }
  {
    std::lock_guard lock(mutex);
    ended = true;
  }
  turn.notify_one();
  stopper.join();
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
  sizer().restorePathsToBeStopped();
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(scratch.path()), whole);
  EXPECT_GT(stopped, 0);
  RecordProperty("stopped", stopped);
}

TEST_F(RVFileSizerStop, takesTheSizeOfTheIndexWithoutWalking) {
  FakeFTS walk;
  FakeIndex index;
  index.attribute = NS::Number::numberWithUnsignedLongLong(12345);
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop("/some/path"), 12345u);
  EXPECT_EQ(index.asked, Strings{"/some/path"});
  EXPECT_EQ(walk.opened, 0);
}

TEST_F(RVFileSizerStop, doesNotTakeUpAStopRequestWhenTheIndexKnowsTheSize) {
  FakeIndex index;
  index.attribute = NS::Number::numberWithUnsignedLongLong(12345);
  sizer().stopScanningForPath("/some/path");
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop("/some/path"), 12345u);
  EXPECT_EQ(sizer().pathsToBeStopped(), Strings{"/some/path"});
}

TEST_F(RVFileSizerStop, walksWhenTheIndexKnowsNoSize) {
  ScratchFolder scratch;
  std::string path = scratch.file("file", std::string(5000, 'x'));
  ::sync();
  FakeIndex index;
  for (const std::shared_ptr<NS::Object> &attribute :
       std::vector<std::shared_ptr<NS::Object>>{nullptr, NS::Number::numberWithUnsignedLongLong(0),
                                                NS::String::stringWithString("12345")}) {
    index.attribute = attribute;
    EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(path), 8192u);
  }
  index.knowsItems = false;
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(path), 8192u);
}

// Counts how many lookups are under way at once at most; each waits that long
// for the other to join it.
int lookupsAtOnce(const NS::String &first, const NS::String &second,
                  std::chrono::milliseconds patience) {
  std::mutex mutex;
  std::condition_variable changed;
  int now = 0;
  int most = 0;
  FakeIndex index;
  index.attribute = NS::Number::numberWithUnsignedLongLong(1);
  index.onCopy = [&] {
    std::unique_lock lock(mutex);
    most = std::max(most, ++now);
    changed.notify_all();
    changed.wait_for(lock, patience, [&] { return most > 1; });
    --now;
  };
  std::thread other([&] { sizer().itemSizeAtPathAbleToStop(first); });
  sizer().itemSizeAtPathAbleToStop(second);
  other.join();
  return most;
}

TEST_F(RVFileSizerStop, looksUpOnePathObjectOneAtATime) {
  auto path = NS::String::stringWithString("/some/path");
  EXPECT_EQ(lookupsAtOnce(*path, *path, std::chrono::milliseconds(50)), 1);
}

TEST_F(RVFileSizerStop, looksUpEqualPathsInOtherObjectsAtTheSameTime) {
  auto path = NS::String::stringWithString("/some/path");
  auto equal = NS::String::stringWithString("/some/path");
  EXPECT_EQ(lookupsAtOnce(*path, *equal, std::chrono::minutes(1)), 2);
}

} // namespace
