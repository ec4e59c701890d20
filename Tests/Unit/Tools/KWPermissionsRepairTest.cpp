// The repair's command line, its progress and its result.
#include "Tools/KWPermissionsRepair.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/SharedInstance.h"
#include "Support/Allocations.h"
#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"
#include "Support/SubstitutedTasks.h"

#include <gtest/gtest.h>
#include <mutex>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <thread>

namespace {

using kwtest::ScratchFolder;
using kwtest::SubstitutedTasks;
using Chunks = std::vector<std::optional<std::string>>;

// One run of a script in the repair tool's place.
struct Repair {
  explicit Repair(const std::string &lines)
      : tasks(folder.script("repair", lines)), override(tasks) {
    for (const char *name : {"go", "one", "two", "three", "four"})
      ::mkfifo(folder.path(name).c_str(), 0600);
  }

  int run() {
    return kw::KWPermissionsRepair().repairPermissionsWithReportProgress(
        [this](bool flag, const std::optional<std::string> &chunk) {
          EXPECT_FALSE(flag);
          EXPECT_NE(std::this_thread::get_id(), caller);
          chunks.push_back(chunk);
          if (onChunk)
            onChunk(chunk);
        });
  }
  // Lets a script that reads the FIFO go on.
  void letGoOn() { folder.file("go", "\n"); }
  // The same for a script that writes a chunk and reads a FIFO of its own for
  // each. It goes on only once the chunk has been read from the pipe, so that
  // the pipe never holds two chunks.
  void letGoOnAfterEachOf(std::initializer_list<std::string> chunkNames) {
    for (const std::string &name : chunkNames) {
      std::ofstream go(folder.path(name)); // opens when the script does
      auto pipe = tasks.standardOutput();
      int waiting = 1;
      while (waiting > 0 &&
             ::ioctl(pipe->fileHandleForReading().fileDescriptor(), FIONREAD, &waiting) == 0)
        std::this_thread::yield();
      EXPECT_EQ(waiting, 0);
      go << std::endl;
    }
  }

  ScratchFolder folder;
  SubstitutedTasks tasks;
  NS::ScopedOverride<NS::TaskFactory> override;
  std::thread::id caller = std::this_thread::get_id();
  // Unguarded: the end of the repair orders it, or the sanitizer objects.
  Chunks chunks;
  std::function<void(const std::optional<std::string> &)> onChunk;
};

TEST(PermissionsRepair, runsTheToolOnTheWholeVolume) {
  Repair repair("exit 0");
  EXPECT_GT(repair.run(), 0);
  EXPECT_EQ(repair.tasks.commandLines(),
            (std::vector<std::vector<std::string>>{{"/usr/libexec/repair_packages",
                                                    "--output-format", "1", "--repair",
                                                    "--standard-pkgs", "--volume", "/"}}));
}

TEST(PermissionsRepair, returnsTheProcessIdentifierEvenOfAFailure) {
  Repair repair("echo $$ > ${0%/*}/pid; exit 7");
  int identifier = repair.run();
  EXPECT_EQ(std::to_string(identifier) + "\n", repair.folder.content("pid"));
}

TEST(PermissionsRepair, reportsEverySecondChunk) {
  Repair repair("for c in one two three four; do printf $c; read l < ${0%/*}/$c; done");
  std::thread pacer([&] { repair.letGoOnAfterEachOf({"one", "two", "three", "four"}); });
  repair.run();
  pacer.join();
  ASSERT_GE(repair.chunks.size(), 2U);
  EXPECT_EQ(repair.chunks[0], "two");
  EXPECT_EQ(repair.chunks[1], "four");
  for (std::size_t index = 2; index < repair.chunks.size(); ++index)
    EXPECT_EQ(repair.chunks[index], "") << "the end";
}

TEST(PermissionsRepair, reportsEmptyTextOnceTheOutputHasEnded) {
  Repair repair("printf dropped; exec >&-; read l < ${0%/*}/go");
  repair.onChunk = [&](const std::optional<std::string> &) {
    if (repair.chunks.size() == 1)
      repair.letGoOn();
  };
  repair.run();
  ASSERT_FALSE(repair.chunks.empty());
  EXPECT_LE(repair.chunks.size(), 2U) << "not over and over";
  for (const auto &chunk : repair.chunks)
    EXPECT_EQ(chunk, "");
}

TEST(PermissionsRepair, reportsNilForInvalidUTF8) {
  Repair repair("printf dropped; read l < ${0%/*}/one; printf '\\303'; read l < ${0%/*}/two");
  std::thread pacer([&] { repair.letGoOnAfterEachOf({"one", "two"}); });
  repair.run();
  pacer.join();
  ASSERT_FALSE(repair.chunks.empty());
  EXPECT_EQ(repair.chunks[0], std::nullopt);
}

// A process that outlives the tool keeps the pipe open for as long as the test
// likes; the repair must not wait for it.
TEST(PermissionsRepair, endsWithTheToolThoughItsPipeStaysOpen) {
  Repair repair("(read l < ${0%/*}/go; exit 0) & printf dropped; exit 0");
  EXPECT_GT(repair.run(), 0);
  repair.letGoOn();
}

TEST(PermissionsRepair, goesOnWhenTheListenerThrows) {
  kwtest::LogRecorder log;
  Repair repair("head -c 3000000 /dev/zero | tr '\\0' x");
  std::size_t thrown = 0;
  repair.onChunk = [&](auto &&) {
    ++thrown;
    throw std::runtime_error("listener gone");
  };
  EXPECT_GT(repair.run(), 0) << "or the tool would write into a pipe that nobody reads";
  EXPECT_GE(thrown, 1U);
  EXPECT_EQ(log.lines().size(), thrown);
  EXPECT_EQ(log.lines().at(0), "Progress of the permissions repair lost: listener gone");
}

// The listener is called on the thread that reads, which gets no memory for a
// chunk from then on.
TEST(PermissionsRepair, readsOnWhenThereIsNoMemoryForTheOutput) {
  kwtest::LogRecorder log;
  Repair repair("printf dropped; read l < ${0%/*}/one; printf kept; read l < ${0%/*}/two; "
                "head -c 3000000 /dev/zero | tr '\\0' x; echo done > ${0%/*}/done");
  std::thread pacer([&] { repair.letGoOnAfterEachOf({"one", "two"}); });
  repair.onChunk = [](auto &&) { thread_local kwtest::AllocationsBelow scarcity(60'000); };
  EXPECT_GT(repair.run(), 0) << "or the tool would write into a pipe that nobody reads";
  pacer.join();
  EXPECT_EQ(repair.folder.content("done"), "done\n");
  EXPECT_EQ(repair.chunks, Chunks{"kept"});
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ(log.lines().back(), "Progress of the permissions repair lost: std::bad_alloc");
}

TEST(PermissionsRepair, raisesWhenTheToolCannotBeStarted) {
  std::size_t before = kwtest::openDescriptorCount();
  SubstitutedTasks tasks("/missing/tool");
  NS::ScopedOverride<NS::TaskFactory> override(tasks);
  try {
    kw::KWPermissionsRepair().repairPermissionsWithReportProgress([](bool, auto &&) {});
    FAIL() << "nothing raised";
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::InvalidArgumentException);
    EXPECT_EQ(exception.reason(), "launch path not accessible (No such file or directory)");
  }
  // The thread that reaps keeps a pipe of its own from the first launch on.
  EXPECT_LE(kwtest::openDescriptorCount(), before + 2);
}

} // namespace
