// Measuring with several threads against measuring with one: the same totals
// and the same log lines in the same order, also of trees that change.
#include "Tools/RVFileSizer.h"

#include "Support/FakeProcessors.h"
#include "Support/ForkedChild.h"
#include "Support/LogRecorder.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"
#include "Support/UncompressedMode.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using kwtest::FakeProcessors;
using kwtest::LogRecorder;
using kwtest::quickFolder;
using kwtest::RandomTree;
using kwtest::ScratchFolder;
using Strings = std::vector<std::string>;

const kw::RVFileSizer &sizer() {
  return kw::RVFileSizer::shared();
}

struct Measurement {
  std::uint64_t size = 0;
  std::uint64_t stoppableSize = 0;
  Strings lines;
  bool operator==(const Measurement &) const = default;
};

Measurement measure(const std::string &path, unsigned processors) {
  FakeProcessors fake(processors);
  LogRecorder log;
  Measurement result;
  result.size = sizer().itemSizeAtPath(path);
  result.stoppableSize = sizer().itemSizeAtPathAbleToStop(path);
  result.lines = log.lines();
  return result;
}

// Bars a part of the tree to all but root. Gives how many folders that is.
int barFolders(const std::string &root) {
  int barred = 0;
  std::vector<std::filesystem::path> folders;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(root))
    if (entry.is_directory() && !entry.is_symlink())
      folders.push_back(entry.path());
  for (const auto &folder : folders) {
    std::size_t choice = std::hash<std::string>{}(folder.filename().string()) % 6;
    if (choice > 1)
      continue;
    // Not to be read, or to be read but not to be searched.
    auto mode = choice == 0 ? std::filesystem::perms::none : std::filesystem::perms::others_read;
    std::filesystem::permissions(folder, mode);
    ++barred;
  }
  return barred;
}

TEST(RVFileSizerThreads, measureAndLogAsOneThreadDoesOnAThousandTrees) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "needs root to become somebody else";
  std::vector<std::unique_ptr<ScratchFolder>> trees;
  int barred = 0;
  for (std::uint32_t seed = 1; seed <= 1000; ++seed) {
    trees.push_back(std::make_unique<ScratchFolder>(quickFolder()));
    RandomTree tree(trees.back()->path(), seed, 40);
    std::filesystem::permissions(trees.back()->path(), std::filesystem::perms(0755));
    barred += barFolders(trees.back()->path());
  }
  EXPECT_GT(barred, 1000);
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              std::size_t lines = 0;
              for (const auto &tree : trees) {
                Measurement alone = measure(tree->path(), 1);
                if (measure(tree->path(), 4) != alone)
                  return "another result in " + tree->path();
                lines += alone.lines.size();
              }
              return lines > 1000 ? "" : "nothing to log";
            }),
            "");
}

TEST(RVFileSizerThreads, countBytesAsOneThreadDoes) {
  kwtest::UncompressedMode uncompressed;
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    ScratchFolder scratch(quickFolder());
    RandomTree tree(scratch.path(), seed, 200);
    EXPECT_EQ(measure(scratch.path(), 4), measure(scratch.path(), 1)) << seed;
  }
}

TEST(RVFileSizerThreads, heedAStopRequestAndMeasureTheNextTime) {
  ScratchFolder scratch(quickFolder());
  RandomTree tree(scratch.path(), 5, 300);
  std::uint64_t size = measure(scratch.path(), 1).size;
  FakeProcessors processors(4);
  sizer().stopScanningForPath(scratch.path());
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(scratch.path()), 0u);
  EXPECT_EQ(sizer().itemSizeAtPathAbleToStop(scratch.path()), size);
}

// Makes and removes folders with a file of one block, counting how often.
class Builder {
public:
  explicit Builder(std::string root) : root_(std::move(root)), thread_([this] { work(); }) {}
  ~Builder() {
    stopped_ = true;
    thread_.join();
  }
  Builder(const Builder &) = delete;
  Builder &operator=(const Builder &) = delete;

  std::uint64_t made() const { return made_; }

private:
  void work() {
    for (unsigned step = 0; !stopped_; ++step) {
      std::string folder = root_ + "/" + std::to_string(step % 8) + "/" + std::to_string(step % 61);
      std::error_code ignored;
      if (std::filesystem::remove_all(folder, ignored) != 0)
        continue;
      ++made_;
      std::filesystem::create_directories(folder, ignored);
      std::ofstream(folder + "/file") << std::string(4096, 'x');
    }
  }

  const std::string root_;
  std::atomic<bool> stopped_{false};
  std::atomic<std::uint64_t> made_{0};
  std::thread thread_;
};

TEST(RVFileSizerThreads, stayWithinTheSizesOfATreeWhileItChanges) {
  // On a memory volume folders take no blocks, so that the bounds are exact.
  ScratchFolder scratch("/dev/shm");
  for (int index = 0; index < 8; ++index) {
    std::filesystem::create_directory(scratch.path(std::to_string(index)));
    for (int file = 0; file < 20; ++file)
      std::ofstream(scratch.path(std::to_string(index) + "/fixed" + std::to_string(file)))
          << std::string(4096, 'x');
  }
  constexpr std::uint64_t fixed = 8 * 20 * 4096;
  Builder builder(scratch.path());
  FakeProcessors processors(4);
  LogRecorder log;
  while (builder.made() < 20'000) {
    std::uint64_t size = sizer().itemSizeAtPath(scratch.path());
    ASSERT_GE(size, fixed);
    ASSERT_LE(size, fixed + builder.made() * 4096);
  }
  // A vanished item is not logged as an error.
  EXPECT_EQ(log.lines(), Strings{});
}

} // namespace
