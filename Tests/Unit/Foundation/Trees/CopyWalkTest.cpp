// Copies whose folders are shared out to several threads, and copies of a tree
// that another process changes meanwhile.
#include "Foundation/Base/Progress.h"
#include "Foundation/Trees/FileManager.h"
#include "Foundation/Trees/POSIX/TreeMove.h"
#include "Support/FakeProcessors.h"
#include "Support/LockedItem.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"
#include "Support/WatchedCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using kwtest::ScratchFolder;

constexpr int folders = 60;
constexpr int filesEach = 6;

// Folders within folders, and in each folder a file that the next one has too.
void makeTree(const ScratchFolder &scratch) {
  for (int number = 0; number < folders; ++number) {
    std::string folder = "tree/" + std::to_string(number % 5) + "/" + std::to_string(number);
    fs::create_directories(scratch.path(folder + "/inner"));
    for (int file = 0; file < filesEach; ++file)
      scratch.file(folder + "/inner/" + std::to_string(file), folder);
    scratch.file(folder + "/shared", folder);
    std::string next = std::to_string((number + 1) % 5);
    fs::create_directories(scratch.path("tree/" + next));
    fs::create_hard_link(scratch.path(folder + "/shared"),
                         scratch.path("tree/" + next + "/link" + std::to_string(number)));
  }
}

// Each item with its mode, size and time, and the first of its names.
std::string describe(const ScratchFolder &scratch, const std::string &root) {
  std::set<std::string> paths{""};
  for (const auto &item : fs::recursive_directory_iterator(scratch.path(root)))
    paths.insert(item.path().string().substr(scratch.path(root).size()));
  std::map<ino_t, std::string> names;
  std::string text;
  for (const std::string &path : paths) {
    struct stat status {};
    ::lstat((scratch.path(root) + path).c_str(), &status);
    text += path + " " + std::to_string(status.st_mode) + " " +
            std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
    if (S_ISREG(status.st_mode))
      text += " " + scratch.content(root + path) + " " +
              names.emplace(status.st_ino, path).first->second;
    text += "\n";
  }
  return text;
}

// Beside "other", a volume in memory, with processors for several threads.
std::string besideAnotherVolume(const ScratchFolder &scratch,
                                const std::function<std::string()> &body) {
  return kwtest::withPrivateMounts([&]() -> std::string {
    kwtest::FakeProcessors processors(4);
    fs::create_directory(scratch.path("other"));
    return kwtest::mountMemory(scratch.path("other")) ? body() : "no mount";
  });
}

bool move(const ScratchFolder &scratch, std::optional<NS::Error> &error) {
  return NS::FileManager::defaultManager().moveItemAtPath(scratch.path("tree"),
                                                          scratch.path("other/tree"), &error);
}

TEST(CopyWalk, bringsSharedFoldersWithTheirTimesAndLinks) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(scratch,
                                [&]() -> std::string {
                                  makeTree(scratch);
                                  std::string before = describe(scratch, "tree");
                                  std::optional<NS::Error> error;
                                  if (!move(scratch, error))
                                    return error->description();
                                  if (fs::exists(scratch.path("tree")))
                                    return "the source is still there";
                                  std::string after = describe(scratch, "other/tree");
                                  return after == before ? "" : before + "became\n" + after;
                                }),
            "");
}

// The most threads of this process at once, until its end.
class ThreadCounter {
public:
  ~ThreadCounter() { count(); }
  std::size_t count() {
    isOver_ = true;
    if (thread_.joinable())
      thread_.join();
    return most_;
  }

private:
  void run() {
    while (!isOver_) {
      auto threads = fs::directory_iterator("/proc/self/task");
      most_ = std::max(most_, static_cast<std::size_t>(std::distance(threads, {})));
      std::this_thread::yield();
    }
  }

  std::atomic<bool> isOver_{false};
  std::size_t most_ = 0;
  std::thread thread_{[this] { run(); }};
};

// The most threads during the copy alone: the removal afterwards has its own.
std::size_t threadsOfCopy(const ScratchFolder &scratch) {
  std::string from = scratch.path("tree"), to = scratch.path("other/tree");
  NS::ItemLocation source, target;
  if (NS::locateItem(from, source) != 0 || NS::locateItem(to, target) != 0)
    return 0;
  NS::MoveAcross move(source, from, target, to);
  ThreadCounter threads;
  return move.copy() ? 0 : threads.count();
}

TEST(CopyWalk, worksWithSeveralThreads) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(scratch,
                                [&]() -> std::string {
                                  for (int number = 0; number < folders; ++number)
                                    fs::create_directories(scratch.path(
                                        "tree/" + std::to_string(number) + "/inner/deeper"));
                                  // On a busy machine a copy can end before it is looked at.
                                  // There are this thread, the one that counts, and the helpers.
                                  for (int turn = 0; turn < 50; ++turn)
                                    if (threadsOfCopy(scratch) >= 4)
                                      return "";
                                  return "by one thread alone";
                                }),
            "");
}

TEST(CopyWalk, ofSeveralThreadsLeavesNothingWhenOneMeetsAnImmovableItem) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  EXPECT_EQ(besideAnotherVolume(
                scratch,
                [&]() -> std::string {
                  makeTree(scratch);
                  kwtest::LockedItem locked(scratch.path("tree/3/43/inner/4"));
                  std::string before = describe(scratch, "tree");
                  std::optional<NS::Error> error;
                  if (move(scratch, error))
                    return "moved";
                  // The copy fails, not the comparison after it.
                  if (error->code() != NS::FileWriteNoPermissionError ||
                      error->description().find("tree/3/43/inner/4") == std::string::npos)
                    return error->description();
                  if (!fs::is_empty(scratch.path("other")))
                    return "something was left";
                  return describe(scratch, "tree") == before ? "" : "the source has changed";
                }),
            "");
}

// Copies "tree" to "copy". The change happens just before the first call of this
// number that the condition holds for.
template <typename Condition>
std::string copyDuring(const ScratchFolder &scratch, unsigned call, const Condition &condition,
                       const std::function<void()> &change) {
  return kwtest::inForkedChild([&]() -> std::string {
    bool isWatched = kwtest::beforeCalls(
        call, [&, isChanged = false](const kwtest::CallArguments &arguments) mutable {
          if (condition(arguments) && !std::exchange(isChanged, true))
            change();
        });
    if (!isWatched)
      return "the calls cannot be watched";
    std::optional<NS::Error> error;
    bool isCopied = NS::FileManager::defaultManager().copyItemAtPath(scratch.path("tree"),
                                                                     scratch.path("copy"), &error);
    return isCopied ? "" : error->description();
  });
}

// After the copy of one name of a file, before the look at the other.
std::string copyDuringChangeBetweenNames(const ScratchFolder &scratch,
                                         const std::function<void()> &change) {
  return copyDuring(
      scratch, SYS_linkat, [](const auto &) { return true; }, change);
}

void setTimeOfChange(const std::string &path, time_t seconds) {
  timespec times[] = {{seconds, 5}, {seconds, 5}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST(CopyWalk, keepsTheNamesOfAFileTogetherWhileItGetsAnother) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("tree"));
  fs::create_hard_link(scratch.file("tree/one", "content"), scratch.path("tree/other"));
  EXPECT_EQ(
      copyDuringChangeBetweenNames(
          scratch, [&] { fs::create_hard_link(scratch.path("tree/one"), scratch.path("third")); }),
      "");
  EXPECT_TRUE(fs::equivalent(scratch.path("copy/one"), scratch.path("copy/other")));
  EXPECT_EQ(scratch.content("copy/one"), "content");
}

// As when a file is replaced by one that gets the same inode number.
TEST(CopyWalk, copiesAFileOnceMoreThatChangesBetweenItsNames) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("tree"));
  std::string one = scratch.file("tree/one", "sooner");
  fs::create_hard_link(one, scratch.path("tree/other"));
  setTimeOfChange(one, 1000);
  EXPECT_EQ(copyDuringChangeBetweenNames(scratch,
                                         [&] {
                                           scratch.file("tree/one", "later!");
                                           setTimeOfChange(one, 2000);
                                         }),
            "");
  EXPECT_EQ((std::set{scratch.content("copy/one"), scratch.content("copy/other")}),
            (std::set<std::string>{"later!", "sooner"}));
}

// Between the look at the folder and its opening.
TEST(CopyWalk, copiesTheLinkThatTakesAFoldersPlace) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("tree/folder"));
  auto opensFolder = [](const auto &arguments) { return arguments.text(1) == "folder"; };
  EXPECT_EQ(copyDuring(scratch, SYS_openat, opensFolder,
                       [&] {
                         fs::rename(scratch.path("tree/folder"), scratch.path("former"));
                         fs::create_symlink("elsewhere", scratch.path("tree/folder"));
                       }),
            "");
  EXPECT_EQ(fs::read_symlink(scratch.path("copy/folder")), "elsewhere");
}

// Moves "tree" to another volume. The folder in it is locked after the look at it.
std::string moveDuringLock(const ScratchFolder &scratch, const kwtest::HeldLock &folder) {
  return besideAnotherVolume(scratch, [&]() -> std::string {
    bool isWatched = kwtest::beforeCalls(SYS_openat, [&](const kwtest::CallArguments &arguments) {
      if (arguments.text(1) == "folder")
        folder.lock();
    });
    if (!isWatched)
      return "the calls cannot be watched";
    std::optional<NS::Error> error;
    if (move(scratch, error))
      return "moved";
    if (error->code() != NS::FileWriteNoPermissionError)
      return error->description();
    return fs::is_empty(scratch.path("other")) ? "" : "something was left";
  });
}

TEST(CopyWalk, refusesAFolderThatIsLockedJustBeforeItIsOpened) {
  KW_REQUIRE_ROOT();
  ScratchFolder scratch;
  fs::create_directories(scratch.path("tree/folder"));
  kwtest::LockedItem probe(scratch.file("probe", ""));
  KW_REQUIRE_LOCKED(probe);
  kwtest::HeldLock folder(scratch.path("tree/folder"));
  EXPECT_EQ(moveDuringLock(scratch, folder), "");
}

// A copy of "tree" to "copy" with this progress.
bool copyWith(const ScratchFolder &scratch, NS::Progress &progress) {
  NS::Progress::Scope scope(progress);
  return NS::FileManager::defaultManager().copyItemAtPath(scratch.path("tree"),
                                                          scratch.path("copy"), nullptr);
}

TEST(CopyProgress, countsEachNameOfAFileAndItsDataOnce) {
  ScratchFolder scratch;
  fs::create_directory(scratch.path("tree"));
  fs::create_hard_link(scratch.file("tree/one", "content"), scratch.path("tree/other"));
  fs::create_symlink("one", scratch.path("tree/link"));
  NS::Progress progress;
  ASSERT_TRUE(copyWith(scratch, progress));
  EXPECT_EQ(progress.snapshot().items, 4u);
  EXPECT_EQ(progress.snapshot().bytes, 7u);
}

TEST(CopyProgress, tellsThePathOfAnItemWhenItIsAskedFor) {
  ScratchFolder scratch;
  fs::create_directories(scratch.path("tree/folder"));
  NS::Progress progress;
  EXPECT_EQ(progress.snapshot().path, ""); // and asks for one
  ASSERT_TRUE(copyWith(scratch, progress));
  EXPECT_EQ(progress.snapshot().path, scratch.path("tree/folder"));
}

} // namespace
