// The reading ahead of a walk: the folders that are open, the bounds, and the
// threads that help.
#include "Foundation/Walking/POSIX/ReadAhead.h"

#include "Support/Allocations.h"
#include "Support/FakeProcessors.h"
#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"
#include "Support/ThreadState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <optional>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using kwtest::openDescriptorCount;
using kwtest::quickFolder;
using kwtest::ScratchFolder;
using NS::AheadBatch;
using NS::AheadBudget;

using State = AheadBatch::State;

// A walk of this thread over a folder. It tells which items the threads look at, and
// may hold them up there. By itself it has read nothing.
class Walk final : public NS::FTSSieve {
public:
  explicit Walk(const std::string &path, unsigned processors = 1, unsigned forDevice = 1)
      : processors_(processors, forDevice),
        folder_(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
        ahead({NS::FTSOption::PHYSICAL, this}, processors), root(*ahead.begin(folder_)) {}
  ~Walk() override {
    ahead.drop(root);
    ahead.retreat();
    ::close(folder_);
  }
  Walk(const Walk &) = delete;
  Walk &operator=(const Walk &) = delete;

  std::function<void()> onOwnItem = [] {};
  std::function<void()> onHelpersItem = [] {};

  bool returns(const char *name, NS::FTSInfo /*info*/, const NS::FTSStat & /*status*/,
               std::int64_t & /*number*/) const noexcept override {
    {
      std::lock_guard lock(mutex_);
      names_.emplace_back(name);
    }
    (::gettid() == thread ? onOwnItem : onHelpersItem)();
    return true;
  }

  // The batch, once it is ready.
  AheadBatch &read(AheadBatch &batch) {
    if (!ahead.await(batch))
      throw std::runtime_error("the reading ahead has ended");
    return batch;
  }
  // Of the items that the threads have looked at.
  std::vector<std::string> names() const {
    std::lock_guard lock(mutex_);
    return names_;
  }
  std::vector<AheadBatch *> folders(State state) const {
    std::vector<AheadBatch *> found;
    for (std::size_t index = 0; index < root.folderCount; ++index)
      if (root.folders[index].state == state)
        found.push_back(&root.folders[index]);
    return found;
  }

private:
  kwtest::FakeProcessors processors_;
  const int folder_;
  mutable std::mutex mutex_;
  mutable std::vector<std::string> names_;

public:
  const pid_t thread = ::gettid();
  NS::ReadAhead ahead;
  AheadBatch &root;
};

// Threads wait for it, however often it is raised.
class Event {
public:
  void raise() {
    isRaised_ = true;
    isRaised_.notify_all();
  }
  void wait() const { isRaised_.wait(false); }
  bool isRaised() const { return isRaised_; }

private:
  std::atomic<bool> isRaised_ = false;
};

// Holds threads up until it is opened.
class Hold {
public:
  void pass() {
    held_.release();
    isOpen_.wait();
  }
  // Returns when so many threads more have come.
  void waitFor(int threads) {
    while (threads-- > 0)
      held_.acquire();
  }
  void open() { isOpen_.raise(); }

private:
  std::counting_semaphore<> held_{0};
  Event isOpen_;
};

// Returns when no more threads than so many work for walks: a helper rests while it
// has nothing to do.
void waitUntilOthersRest(unsigned threads = 1) {
  NS::Helpers working(threads);
  while (working.isCrowded())
    std::this_thread::yield();
}

// Folders with a file each.
void makeFolders(const std::string &parent, int count) {
  for (int index = 0; index < count; ++index) {
    std::string path = parent + "/" + std::to_string(index);
    std::filesystem::create_directory(path);
    std::ofstream(path + "/file") << "content";
  }
}

// Empty folders, so many that threads help.
void makeEmptyFolders(const ScratchFolder &scratch) {
  for (int index = 0; index < 10; ++index)
    std::filesystem::create_directory(scratch.path("empty " + std::to_string(index)));
}

AheadBatch &folderIn(const AheadBatch &batch, std::string_view name) {
  for (const NS::AheadItem &item : batch.content->items)
    if (item.name == name)
      return *item.folder;
  throw std::runtime_error("no folder " + std::string(name));
}

// The numbers of folders that are open besides the root, after each step.
class OpenFolders {
public:
  void note() { text_ += " " + std::to_string(openDescriptorCount() - before_); }
  const std::string &text() const { return text_; }

private:
  const std::size_t before_ = openDescriptorCount();
  std::string text_;
};

std::string openWhileTheWalkGoesOn(Walk &walk) {
  OpenFolders open;
  auto read = [&](AheadBatch &batch) -> AheadBatch & {
    walk.read(batch);
    open.note();
    return batch;
  };
  AheadBatch &a = read(folderIn(read(walk.root), "a"));
  read(folderIn(a, "b"));
  read(folderIn(read(folderIn(a, "c")), "d"));
  return open.text();
}

TEST(ReadAhead, keepsAFolderOpenUntilTheFoldersInItAreRead) {
  ScratchFolder scratch(quickFolder());
  std::filesystem::create_directories(scratch.path("a/b"));
  std::filesystem::create_directories(scratch.path("a/c/d"));
  std::string expected = " 0 1 1 1 0";
  Walk walk(scratch.path());
  EXPECT_EQ(openWhileTheWalkGoesOn(walk), expected);
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              Walk inChild(scratch.path());
              ::close(0);
              return openWhileTheWalkGoesOn(inChild);
            }),
            expected)
      << "the lowest descriptor is one as any other";
}

TEST(ReadAhead, closesAFolderWhenTheLastUnreadFolderInItIsDropped) {
  ScratchFolder scratch(quickFolder());
  std::filesystem::create_directories(scratch.path("a/b"));
  std::filesystem::create_directories(scratch.path("a/c"));
  Walk walk(scratch.path());
  OpenFolders open;
  AheadBatch &a = walk.read(folderIn(walk.read(walk.root), "a"));
  open.note();
  walk.ahead.drop(folderIn(a, "b"));
  open.note();
  walk.ahead.drop(folderIn(a, "c"));
  open.note();
  EXPECT_EQ(open.text(), " 1 1 0");
}

TEST(ReadAhead, closesEveryFolderBeneathOneThatIsDropped) {
  ScratchFolder scratch(quickFolder());
  std::filesystem::create_directories(scratch.path("a/b/c"));
  Walk walk(scratch.path());
  OpenFolders open;
  AheadBatch &a = walk.read(folderIn(walk.read(walk.root), "a"));
  walk.read(folderIn(a, "b"));
  open.note();
  walk.ahead.drop(a);
  open.note();
  EXPECT_EQ(open.text(), " 1 0");
}

TEST(ReadAhead, holdsNothingOfAFolderThatTheWalkHasUsed) {
  ScratchFolder scratch(quickFolder());
  std::filesystem::create_directories(scratch.path("a/b"));
  Walk walk(scratch.path());
  AheadBatch &a = walk.read(folderIn(walk.read(walk.root), "a"));
  AheadBatch &b = walk.read(folderIn(a, "b"));
  EXPECT_EQ(walk.ahead.next(b), nullptr);
  EXPECT_EQ(walk.ahead.next(a), nullptr);
  EXPECT_EQ(a.bytes(), sizeof(AheadBatch));
  EXPECT_EQ(a.folders, nullptr);
}

// At each allocation of a walk into the deep.
TEST(ReadAhead, endsForGoodWithEveryFolderClosedWhenMemoryRunsOut) {
  ScratchFolder scratch(quickFolder());
  std::filesystem::create_directories(scratch.path("a/b/c/d"));
  int failures = 0;
  for (bool hasFailed = true; hasFailed; ++failures) {
    Walk walk(scratch.path());
    std::size_t before = openDescriptorCount();
    kwtest::allocationsLeft() = failures;
    AheadBatch *batch = &walk.root;
    while (batch && walk.ahead.await(*batch))
      batch = batch->folderCount > 0 ? &batch->folders[0] : nullptr;
    kwtest::allocationsLeft().reset();
    hasFailed = batch != nullptr;
    EXPECT_EQ(openDescriptorCount(), before) << failures;
    EXPECT_FALSE(batch && walk.ahead.await(*batch)) << failures;
  }
  EXPECT_GT(failures, 10);
}

std::size_t threadCount() {
  std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(threads), end(threads)));
}

TEST(ReadAhead, endsItsThreadsWhenOneHasNoMemory) {
  ScratchFolder scratch(quickFolder());
  makeEmptyFolders(scratch);
  makeFolders(scratch.path(), 1);
  std::filesystem::create_directory(scratch.path("0/inner"));
  std::thread([] {}).join(); // a sanitizer starts one of its own with the first
  std::size_t before = threadCount();
  Hold hold;
  Walk walk(scratch.path(), 4, 4);
  walk.onHelpersItem = [&] {
    hold.pass();
    kwtest::allocationsLeft() = 0;
  };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  hold.waitFor(1);
  waitUntilOthersRest(2);
  hold.open();
  while (threadCount() > before)
    std::this_thread::yield();
  AheadBatch &folder = folderIn(walk.root, "0");
  EXPECT_TRUE(walk.ahead.await(folder));
  EXPECT_FALSE(walk.ahead.await(folderIn(folder, "inner")));
}

// More than may be open at once: each is open until the folder in it is read.
TEST(ReadAhead, readsAllFoldersThoughTheWalkDoesNotGoOn) {
  constexpr int folders = AheadBudget::mostFolders + 20;
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch.path(), folders);
  for (int index = 0; index < folders; ++index)
    std::filesystem::create_directory(scratch.path(std::to_string(index)) + "/inner");
  Hold hold;
  hold.open();
  Walk walk(scratch.path(), 4, 4);
  walk.onHelpersItem = [&] { hold.pass(); };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  hold.waitFor(folders);
  waitUntilOthersRest();
  for (AheadBatch *batch : walk.folders(State::Ready))
    EXPECT_TRUE(walk.ahead.await(*batch));
  EXPECT_TRUE(walk.folders(State::Waiting).empty());
}

TEST(ReadAhead, letsTheWalkReadOtherFoldersWhileThreadsReadTheOneThatItNeeds) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch.path(), 10);
  Hold hold;
  Walk walk(scratch.path(), 4, 4);
  walk.onHelpersItem = [&] { hold.pass(); };
  walk.onOwnItem = [&] { hold.open(); };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  hold.waitFor(3);
  EXPECT_TRUE(walk.ahead.await(*walk.folders(State::Reading).at(0)));
}

TEST(ReadAhead, letsTheWalkSleepUntilAThreadHasReadTheFolderThatItNeeds) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch.path(), 10);
  Hold hold;
  Walk walk(scratch.path(), 4, 4);
  walk.onHelpersItem = [&] {
    hold.pass();
    while (!kwtest::isAsleep(walk.thread))
      std::this_thread::yield();
  };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  hold.waitFor(3);
  for (AheadBatch *batch : walk.folders(State::Waiting))
    EXPECT_TRUE(walk.ahead.await(*batch));
  hold.open();
  for (AheadBatch *batch : walk.folders(State::Reading))
    EXPECT_TRUE(walk.ahead.await(*batch));
}

// Holds helpers up at their items while the walk works, unless it waits for them.
class WaitedFor {
public:
  void pass(pid_t walk) {
    hold_.pass();
    while (!hasReturned_.isRaised() && !kwtest::isAsleep(walk))
      std::this_thread::yield();
    ++ended_;
  }
  // The number of helpers that had read their folders when the work returned.
  template <typename Work> int endedAfter(int helpers, Work work) {
    hold_.waitFor(helpers);
    hold_.open();
    work();
    int ended = ended_;
    hasReturned_.raise();
    return ended;
  }

private:
  Hold hold_;
  Event hasReturned_;
  std::atomic<int> ended_ = 0;
};

TEST(ReadAhead, waitsInRetreatForTheFoldersThatAreBeingRead) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch.path(), 10);
  std::size_t before = openDescriptorCount();
  WaitedFor helpers;
  Walk walk(scratch.path(), 4, 4);
  walk.onHelpersItem = [&] { helpers.pass(walk.thread); };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  EXPECT_EQ(helpers.endedAfter(3, [&] { walk.ahead.retreat(); }), 3);
  EXPECT_EQ(openDescriptorCount(), before + 1) << "the root stays open";
  EXPECT_EQ(walk.folders(State::Ready).size(), 3u);
  for (AheadBatch *batch : walk.folders(State::Ready))
    EXPECT_TRUE(walk.ahead.await(*batch)) << "the walk can use it";
  EXPECT_FALSE(walk.ahead.await(*walk.folders(State::Waiting).at(0)));
}

TEST(ReadAhead, waitsUntilAFolderIsReadThatIsDropped) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch.path(), 1);
  makeEmptyFolders(scratch);
  WaitedFor helpers;
  Walk walk(scratch.path(), 4, 4);
  walk.onHelpersItem = [&] { helpers.pass(walk.thread); };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  AheadBatch &folder = folderIn(walk.root, "0");
  EXPECT_EQ(helpers.endedAfter(1, [&] { walk.ahead.drop(folder); }), 1);
}

TEST(ReadAhead, neverReadsFoldersThatWereDropped) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch.path(), 10);
  Hold hold;
  Walk walk(scratch.path(), 4, 4);
  walk.onHelpersItem = [&] { hold.pass(); };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  hold.waitFor(3);
  for (AheadBatch *batch : walk.folders(State::Waiting))
    walk.ahead.drop(*batch);
  hold.open();
  waitUntilOthersRest();
  EXPECT_EQ(walk.names().size(), 3u);
}

// The others have nothing to do until a thread finds the folders.
TEST(ReadAhead, wakesThreadsForFoldersThatOneHasFound) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch.path(), 1);
  makeEmptyFolders(scratch);
  makeFolders(scratch.path("0"), 4);
  Hold atFirst, atSubfolders;
  Event hasSubfolders;
  Walk walk(scratch.path(), 4, 4);
  walk.onHelpersItem = [&] { (hasSubfolders.isRaised() ? atSubfolders : atFirst).pass(); };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  atFirst.waitFor(1);
  waitUntilOthersRest(2);
  hasSubfolders.raise();
  atFirst.open();
  atSubfolders.waitFor(2); // at once
  atSubfolders.open();
}

TEST(ReadAhead, letsTheWalkReadTheRestOfALargeFolder) {
  ScratchFolder scratch(quickFolder());
  makeEmptyFolders(scratch);
  std::filesystem::create_directory(scratch.path("large"));
  std::string filler(200, 'x');
  for (int index = 0; index < 500; ++index)
    scratch.file("large/" + std::to_string(index) + filler, "");
  Hold hold;
  Walk walk(scratch.path(), 2, 2);
  walk.onHelpersItem = [&] { hold.pass(); };
  walk.onOwnItem = [&] { hold.open(); };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  hold.waitFor(1);
  AheadBatch &large = folderIn(walk.root, "large");
  ASSERT_TRUE(walk.ahead.await(large));
  AheadBatch *rest = walk.ahead.next(large);
  ASSERT_NE(rest, nullptr);
  EXPECT_TRUE(walk.ahead.await(*rest));
  walk.ahead.drop(*rest);
  EXPECT_EQ(walk.names().size(), 500u);
}

TEST(ReadAhead, hasMoreThreadsThanProcessorsWhileTheyWaitForADevice) {
  ScratchFolder scratch(quickFolder());
  makeFolders(scratch.path(), 12);
  Hold hold;
  Walk walk(scratch.path(), 2, 3);
  walk.onOwnItem = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
  walk.onHelpersItem = [&] { hold.pass(); };
  ASSERT_TRUE(walk.ahead.await(walk.root));
  hold.waitFor(1);
  ASSERT_TRUE(walk.ahead.await(*walk.folders(State::Waiting).at(0)));
  hold.waitFor(1); // another one
  hold.open();
  hold.waitFor(9);
  waitUntilOthersRest();
}

TEST(ReadAhead, isHelpedAfterFoldersWhoseDescriptorWasZero) {
  ScratchFolder scratch(quickFolder());
  std::filesystem::create_directories(scratch.path("a/b/c"));
  makeFolders(scratch.path("a/b/c"), 10);
  EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
              Hold hold;
              hold.open();
              Walk walk(scratch.path(), 4, 4);
              walk.onHelpersItem = [&] { hold.pass(); };
              ::close(0);
              AheadBatch *batch = &walk.root;
              for (int level = 0; level < 4 && walk.ahead.await(*batch); ++level)
                batch = &batch->folders[0];
              hold.waitFor(10);
              return "";
            }),
            "");
}

// Trees of more than may be read ahead.
class ReadAheadOfALargeTree : public testing::Test {
protected:
  static constexpr std::size_t mostOfABatch = 100 * 1024;

  ~ReadAheadOfALargeTree() override {
    if (hold_)
      hold_->open();
    for (AheadBatch *batch : next_)
      ahead().drop(*batch);
  }

  void makeTree(int folders, int files) {
    std::string filler(200, 'x');
    makeEmptyFolders(scratch_);
    for (int folder = 0; folder < folders; ++folder) {
      std::string path = scratch_.path(std::to_string(folder));
      std::filesystem::create_directory(path);
      for (int file = 0; file < files; ++file)
        std::ofstream(path + "/" + std::to_string(file) + filler) << "";
    }
  }

  NS::ReadAhead &ahead() { return walk_->ahead; }

  std::size_t bytesAhead() const {
    std::size_t bytes = walk_->root.bytes();
    for (const AheadBatch *batch : next_)
      for (; batch && batch->state == State::Ready; batch = batch->rest)
        bytes += batch->bytes();
    return bytes;
  }

  void readAsMuchAsMayBe(unsigned helpers) {
    walk_.emplace(scratch_.path(), helpers + 1, helpers + 1);
    walk_->onHelpersItem = [this] {
      if (hold_)
        hold_->pass();
    };
    ASSERT_TRUE(ahead().await(walk_->root));
    waitUntilOthersRest();
    for (std::size_t index = 0; index < walk_->root.folderCount; ++index)
      next_.push_back(&walk_->root.folders[index]);
    EXPECT_GE(bytesAhead(), AheadBudget::mostBytes);
    EXPECT_LE(bytesAhead(), AheadBudget::mostBytes + helpers * mostOfABatch);
    hold_.emplace();
  }

  // Lets the walk use batches until fewer bytes are ahead. By itself it reads nothing.
  template <typename Use> void useUntil(std::size_t bytes, Use use) {
    while (bytesAhead() >= bytes) {
      auto ready = std::ranges::find_if(
          next_, [](const AheadBatch *batch) { return batch->state == State::Ready; });
      ASSERT_NE(ready, next_.end());
      *ready = use(**ready);
      std::erase(next_, nullptr);
    }
  }

  // Returns when so many helpers read on, and lets them do so.
  void expectHelpers(int helpers) {
    hold_->waitFor(helpers);
    hold_->open();
    waitUntilOthersRest();
    EXPECT_LE(bytesAhead(), AheadBudget::mostBytes + 3 * mostOfABatch);
  }

  AheadBatch &firstUnread() {
    return **std::ranges::find_if(
        next_, [](const AheadBatch *batch) { return batch->state == State::Waiting; });
  }

private:
  ScratchFolder scratch_{quickFolder()};
  std::optional<Hold> hold_;
  std::optional<Walk> walk_;
  std::vector<AheadBatch *> next_; // of each folder
};

TEST_F(ReadAheadOfALargeTree, goesOnWhenTheWalkHasUsedHalfOfAllThatIsAhead) {
  makeTree(100, 200);
  readAsMuchAsMayBe(3);
  useUntil(AheadBudget::mostBytes / 2, [&](AheadBatch &batch) { return ahead().next(batch); });
  expectHelpers(1);
}

TEST_F(ReadAheadOfALargeTree, goesOnWhenTheWalkHasDroppedHalfOfAllThatIsAhead) {
  makeTree(100, 200);
  readAsMuchAsMayBe(1);
  useUntil(AheadBudget::mostBytes / 2, [&](AheadBatch &batch) {
    ahead().drop(batch);
    return nullptr;
  });
  expectHelpers(1);
}

// The one that goes on wakes another one, for the rest of the folder that it reads.
TEST_F(ReadAheadOfALargeTree, goesOnWithAnotherThreadInALargeFolder) {
  makeTree(2, 16000);
  readAsMuchAsMayBe(2);
  useUntil(AheadBudget::mostBytes / 2, [&](AheadBatch &batch) { return ahead().next(batch); });
  expectHelpers(2);
}

// A walk deep in a tree comes back to the folders above it late, and holds a part of
// all that may be ahead until then.
TEST_F(ReadAheadOfALargeTree, goesOnWhenTheWalkHasToReadAFolderItself) {
  makeTree(100, 200);
  readAsMuchAsMayBe(1);
  useUntil(AheadBudget::mostBytes * 3 / 4, [&](AheadBatch &batch) { return ahead().next(batch); });
  EXPECT_GE(bytesAhead(), AheadBudget::mostBytes / 2);
  ASSERT_TRUE(ahead().await(firstUnread()));
  expectHelpers(1);
}

} // namespace
