// Copies whose folders are shared out to several threads.
#include "Foundation/Trees/FileManager.h"
#include "Foundation/Trees/POSIX/TreeMove.h"
#include "Support/FakeProcessors.h"
#include "Support/LockedItem.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

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
                                  makeTree(scratch);
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

} // namespace
