// The result of a removal for an item that vanishes, a lost way back, and a
// requester that cancels.
#include "Foundation/Trees/Internal/TreeRemoval.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Files/FileFlags.h"
#include "Foundation/Trees/FileManager.h"
#include "Foundation/Trees/SecureRemoval.h"
#include "Foundation/Walking/POSIX/FolderChain.h"
#include "Support/FakeProcessors.h"
#include "Support/LockedItem.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;
using NS::Progress;
using NS::StepOutcome;
using NS::TreeItem;
using NS::TreeResult;
using NS::TreeStep;

// Does something before each file goes.
class HookedEraser final : public NS::ItemEraser {
public:
  explicit HookedEraser(std::function<void(const std::string &name)> hook)
      : hook_(std::move(hook)) {}
  StepOutcome erase(int folder, const char *name, unsigned char type) override {
    hook_(name);
    return plain_.erase(folder, name, type);
  }

private:
  std::function<void(const std::string &)> hook_;
  NS::PlainEraser plain_;
};

constexpr std::size_t depth = NS::ChainRules().window + 4;

// "root/d/d/d...", with a file in the lowest folder.
std::string makeChain(const ScratchFolder &scratch, const std::string &root,
                      const std::string &file = "bottom") {
  std::string path = root;
  for (std::size_t level = 1; level < depth; ++level)
    path += "/d";
  fs::create_directories(scratch.path(path));
  scratch.file(path + "/" + file, "");
  return path;
}

TEST(TreeRemoval, doesNotTakeALostWayBackForAnItemThatIsGone) {
  KW_REQUIRE_ROOT();
  kwtest::FakeProcessors alone(1, 1); // by one walk down to the bottom
  ScratchFolder scratch;
  makeChain(scratch, "volume/view/root");
  fs::create_directory(scratch.path("seen"));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              // From a folder that left the part of a volume that is mounted
              // there is no way back up: ".." is ENOENT.
              if (!kwtest::bindMount(scratch.path("volume/view"), scratch.path("seen")))
                return "no mount";
              HookedEraser eraser([&](const std::string &name) {
                if (name == "bottom")
                  fs::rename(scratch.path("volume/view/root/d/d"), scratch.path("volume/outside"));
              });
              TreeResult failure =
                  NS::eraseItemAtPath(scratch.path("seen/root"), eraser, NS::Recursion::WholeTree);
              if (!failure)
                return "success";
              if (failure->outcome.errnum() != ENOENT)
                return "another error: " + std::to_string(failure->outcome.errnum());
              if (failure->outcome.step() != TreeStep::GoUp || failure->item != TreeItem::Inner)
                return "another step";
              return failure->isGone() ? "gone" : "";
            }),
            "");
  EXPECT_TRUE(fs::exists(scratch.path("volume/view/root/d")));
}

// The same in one of the folders that are shared out to several threads.
TEST(TreeRemoval, byAnyThreadDoesNotTakeALostWayBackForAnItemThatIsGone) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  for (int number = 0; number < 12; ++number)
    makeChain(scratch, "volume/view/root/" + std::to_string(number),
              "bottom" + std::to_string(number));
  fs::create_directory(scratch.path("seen"));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::bindMount(scratch.path("volume/view"), scratch.path("seen")))
                return "no mount";
              // The file in each chain tells the chain's name: each thread loses
              // the way back of the chain that it is in.
              HookedEraser eraser([&](const std::string &name) {
                if (!name.starts_with("bottom"))
                  return;
                std::string chain = name.substr(6);
                std::error_code ignored;
                fs::rename(scratch.path("volume/view/root/" + chain + "/d/d"),
                           scratch.path("volume/" + chain), ignored);
              });
              TreeResult failure =
                  NS::eraseItemAtPath(scratch.path("seen/root"), eraser, NS::Recursion::WholeTree);
              if (!failure)
                return "success";
              return failure->isGone() ? "gone" : "";
            }),
            "");
  EXPECT_TRUE(fs::exists(scratch.path("volume/view/root")));
}

TEST(TreeRemoval, saysGoneOfTheItemAskedAboutAlone) {
  ScratchFolder scratch;
  NS::PlainEraser eraser;
  for (const char *path : {"missing", "missing/below"}) {
    TreeResult failure = NS::eraseItemAtPath(scratch.path(path), eraser, NS::Recursion::WholeTree);
    ASSERT_TRUE(failure) << path;
    EXPECT_TRUE(failure->isGone()) << path;
  }
  fs::create_directory(scratch.path("root"));
  scratch.file("root/file", "");
  // Another process was faster.
  HookedEraser slow([&](const std::string &name) {
    if (name == "file")
      fs::remove(scratch.path("root/file"));
  });
  EXPECT_FALSE(NS::eraseItemAtPath(scratch.path("root"), slow, NS::Recursion::WholeTree));
}

// Many folders with a file each, so that several threads work.
void makeBroadTree(const ScratchFolder &scratch, int folders) {
  for (int number = 0; number < folders; ++number) {
    std::string folder = "root/" + std::to_string(number);
    fs::create_directories(scratch.path(folder));
    scratch.file(folder + "/file", "content");
  }
}

TEST(TreeRemoval, worksWithSeveralThreads) {
  kwtest::FakeProcessors processors(4);
  std::mutex mutex;
  std::set<std::thread::id> threads;
  HookedEraser eraser([&](const std::string &) {
    std::lock_guard lock(mutex);
    threads.insert(std::this_thread::get_id());
  });
  // On a busy machine a removal can end before a helper begins.
  for (int turn = 0; turn < 50 && threads.size() < 2; ++turn) {
    ScratchFolder scratch;
    makeBroadTree(scratch, 100);
    EXPECT_FALSE(NS::eraseItemAtPath(scratch.path("root"), eraser, NS::Recursion::WholeTree));
  }
  EXPECT_GE(threads.size(), 2u);
}

TEST(TreeRemoval, tellsThePathOfAnItemWhenItIsAskedFor) {
  ScratchFolder scratch;
  makeBroadTree(scratch, 1);
  Progress progress;
  Progress::Scope scope(progress);
  EXPECT_EQ(progress.snapshot().path, ""); // and asks for one
  ASSERT_TRUE(NS::FileManager::defaultManager().removeItemAtPath(scratch.path("root"), nullptr));
  EXPECT_EQ(progress.snapshot().path, scratch.path("root/0"));
}

TEST(TreeRemoval, countsItems) {
  ScratchFolder scratch;
  makeBroadTree(scratch, 40);
  Progress progress;
  {
    Progress::Scope scope(progress);
    ASSERT_TRUE(NS::FileManager::defaultManager().removeItemAtPath(scratch.path("root"), nullptr));
  }
  EXPECT_EQ(progress.snapshot().items, 81u);
  EXPECT_EQ(progress.snapshot().bytes, 0u);
}

TEST(TreeRemoval, ofAllItsThreadsStopsAtTheNextItemWhenItIsCancelled) {
  ScratchFolder scratch;
  makeBroadTree(scratch, 500);
  Progress progress;
  Progress::Scope scope(progress);
  std::atomic<int> erased{0};
  HookedEraser eraser([&](const std::string &name) {
    if (name == "file" && ++erased == 50)
      progress.cancel();
  });
  TreeResult failure = NS::eraseItemAtPath(scratch.path("root"), eraser, NS::Recursion::WholeTree);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->outcome.errnum(), ECANCELED);
  // Each of the other threads may have been at an item.
  EXPECT_LE(erased, 55);
}

// Cancels as soon as the condition holds, if it comes to run in time.
class Canceller {
public:
  Canceller(Progress &progress, std::function<bool()> condition)
      : thread_([this, &progress, condition] {
          while (!stopped_ && !condition())
            std::this_thread::yield();
          progress.cancel();
        }) {}
  ~Canceller() {
    stopped_ = true;
    thread_.join();
  }

private:
  std::atomic<bool> stopped_{false};
  std::thread thread_;
};

// How often a request is made anew until one is cancelled half-way: on a busy
// machine the other thread may come to run too late.
constexpr int turns = 50;

std::int64_t codeOf(const std::optional<NS::Error> &error) {
  return error ? error->code() : 0;
}

TEST(CancelledRequest, leavesATreeThatItHasNotBegunWhole) {
  ScratchFolder scratch;
  makeBroadTree(scratch, 10);
  Progress progress;
  progress.cancel();
  Progress::Scope scope(progress);
  NS::FileManager &manager = NS::FileManager::defaultManager();
  std::string root = scratch.path("root");
  std::optional<NS::Error> error;
  EXPECT_FALSE(manager.removeItemAtPath(root, &error));
  EXPECT_EQ(codeOf(error), NS::UserCancelledError);
  EXPECT_EQ(error->underlyingError()->code(), ECANCELED);
  for (const auto &operation :
       {&NS::FileManager::moveItemAtPath, &NS::FileManager::copyItemAtPath}) {
    error.reset();
    EXPECT_FALSE((manager.*operation)(root, scratch.path("other"), &error));
    EXPECT_EQ(codeOf(error), NS::UserCancelledError);
  }
  error.reset();
  EXPECT_FALSE(manager.trashItemAtURL(NS::URL::fileURLWithPath(root), &error));
  EXPECT_EQ(codeOf(error), NS::UserCancelledError);
  EXPECT_EQ(NS::SecureRemoval::shared().removefile(root, 17), -1);
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(std::distance(fs::recursive_directory_iterator(root), {}), 20);
  EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path()), {}), 1);
  EXPECT_EQ(scratch.content("root/0/file"), "content");
}

// Shreds the item, and cancels when the condition holds. True when it was
// stopped by that.
bool isShreddingStopped(const std::string &path, const std::function<bool(Progress &)> &condition) {
  Progress progress;
  Progress::Scope scope(progress);
  Canceller canceller(progress, [&] { return condition(progress); });
  bool isDone = NS::SecureRemoval::shared().removefile(path, 17) == 0;
  EXPECT_TRUE(isDone || errno == ECANCELED);
  EXPECT_EQ(fs::exists(path), !isDone);
  return !isDone;
}

TEST(CancelledRequest, stopsAShreddingHalfWay) {
  bool isStopped = false;
  for (int turn = 0; turn < turns && !isStopped; ++turn) {
    ScratchFolder scratch;
    makeBroadTree(scratch, 100);
    isStopped = isShreddingStopped(
        scratch.path("root"), [](Progress &progress) { return progress.snapshot().items > 20; });
  }
  EXPECT_TRUE(isStopped);
}

TEST(CancelledRequest, stopsAShreddingWithinAFile) {
  bool isStopped = false;
  for (int turn = 0; turn < turns && !isStopped; ++turn) {
    ScratchFolder scratch;
    std::string path = scratch.file("large", std::string(32 << 20, 'x'));
    isStopped = isShreddingStopped(path, [&](Progress &) {
      std::ifstream file(path);
      return file.get() != 'x';
    });
  }
  EXPECT_TRUE(isStopped);
}

// Moves "root", of so many items, to another volume and cancels when the
// condition holds. Returns a text about the fault; "late" when everything was
// copied by then.
std::string moveAndCancel(const ScratchFolder &scratch, std::uint64_t items,
                          const std::function<bool(Progress &)> &condition) {
  Progress progress;
  Progress::Scope scope(progress);
  std::optional<NS::Error> error;
  {
    Canceller canceller(progress, [&] { return condition(progress); });
    if (NS::FileManager::defaultManager().moveItemAtPath(scratch.path("root"),
                                                         scratch.path("other/root"), &error))
      return "late";
  }
  if (codeOf(error) != NS::UserCancelledError)
    return error->description();
  if (fs::exists(scratch.path("other/root")))
    return "late";
  if (!fs::is_empty(scratch.path("other")))
    return "something was left";
  if (progress.snapshot().items == items)
    return "late";
  return "";
}

// Until a turn is cancelled half-way.
std::string cancelMovesOf(const ScratchFolder &scratch, std::uint64_t items,
                          const std::function<void()> &make,
                          const std::function<bool(Progress &)> &condition) {
  return kwtest::withPrivateMounts([&]() -> std::string {
    fs::create_directory(scratch.path("other"));
    if (!kwtest::mountMemory(scratch.path("other")))
      return "no mount";
    std::string result = "late";
    for (int turn = 0; turn < turns && result == "late"; ++turn) {
      fs::remove_all(scratch.path("other/root"));
      make();
      result = moveAndCancel(scratch, items, condition);
    }
    return result;
  });
}

TEST(CancelledRequest, ofAMoveToAnotherVolumeLeavesTheSourceWholeAndNothingElse) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  auto make = [&] {
    for (int number = 0; number < 400; ++number)
      fs::create_directories(scratch.path("root/" + std::to_string(number)));
  };
  auto condition = [](Progress &progress) { return progress.snapshot().items > 20; };
  EXPECT_EQ(cancelMovesOf(scratch, 401, make, condition), "");
  EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path("root")), {}), 400);
}

TEST(CancelledRequest, stopsAMoveWithinAFile) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  std::string content(64 << 20, 'x');
  auto make = [&] { scratch.file("root", content); };
  auto condition = [&](Progress &) {
    return fs::exists(scratch.path("other/.keepwell-copy-00/item"));
  };
  EXPECT_EQ(cancelMovesOf(scratch, 1, make, condition), "");
  EXPECT_EQ(fs::file_size(scratch.path("root")), content.size());
}

TEST(MoveAcrossProgress, countsEachItemOnceWithItsBytes) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              fs::create_directory(scratch.path("other"));
              if (!kwtest::mountMemory(scratch.path("other")))
                return "no mount";
              makeBroadTree(scratch, 10);
              Progress progress;
              Progress::Scope scope(progress);
              if (!NS::FileManager::defaultManager().moveItemAtPath(
                      scratch.path("root"), scratch.path("other/root"), nullptr))
                return "not moved";
              Progress::Snapshot counts = progress.snapshot();
              return counts.items == 21 && counts.bytes == 70
                         ? ""
                         : std::to_string(counts.items) + " items, " +
                               std::to_string(counts.bytes) + " bytes";
            }),
            "");
}

TEST(ShreddingProgress, countsItemsAndBytes) {
  ScratchFolder scratch;
  makeBroadTree(scratch, 10);
  Progress progress;
  Progress::Scope scope(progress);
  ASSERT_EQ(NS::SecureRemoval::shared().removefile(scratch.path("root"), 17), 0);
  EXPECT_EQ(progress.snapshot().items, 21u);
  EXPECT_EQ(progress.snapshot().bytes, 70u);
}

TEST(CancelledRequest, unlocksNothing) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("root"));
  kwtest::LockedItem locked(scratch.file("root/locked", ""));
  KW_REQUIRE_LOCKED(locked);
  Progress progress;
  progress.cancel();
  Progress::Scope scope(progress);
  NS::FileFlags::shared().clearBeneath(scratch.path("root"), NS::SF_IMMUTABLE_FLAG,
                                       [](const std::string &, int) {});
  EXPECT_NE(kwtest::inodeFlags(scratch.path("root/locked")) & FS_IMMUTABLE_FL, 0);
}

} // namespace
