// Runs of tools: captured output, results, and the effect of each failure.
#include "Tools/KWTaskRunner.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Threads/Thread.h"
#include "Protocol/Identity.h"
#include "Support/Allocations.h"
#include "Support/LogRecorder.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"
#include "Support/StandardStreamInFile.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using kw::KWTaskRunner;
using kwtest::LogRecorder;
using kwtest::openDescriptorCount;
using kwtest::ScratchFolder;
using kwtest::StandardStreamInFile;
using Arguments = KWTaskRunner::Arguments;
using Output = KWTaskRunner::Output;

struct Completion {
  Output output;
  long long status;
  Output errorOutput;
  std::optional<NS::Error> error;
};

// Every call of a completion, in order.
struct Completions {
  std::vector<Completion> calls;
  KWTaskRunner::CompletionHandler handler() {
    return [this](const Output &output, long long status, const Output &errorOutput,
                  const std::optional<NS::Error> &error) {
      calls.push_back({output, status, errorOutput, error});
    };
  }
};

void expectTaskError(const Completion &call, const std::string &description) {
  EXPECT_EQ(call.output, std::nullopt);
  EXPECT_EQ(call.status, -1);
  ASSERT_TRUE(call.error);
  EXPECT_EQ(call.error->domain(), kw::kTaskRunnerErrorDomain);
  EXPECT_EQ(call.error->code(), 0);
  EXPECT_EQ(call.error->userInfo().size(), 1U);
  EXPECT_EQ(call.error->localizedDescription(), description);
}

Completions runShell(const std::string &command,
                     const std::optional<std::string> &standardInput = std::nullopt) {
  Completions completions;
  KWTaskRunner::shared().launchTask("/bin/sh", {"-c", command}, standardInput,
                                    completions.handler());
  return completions;
}

// Answers every key of every table with one text, and records the key.
class FakeBundle final : public NS::Bundle {
public:
  std::string localizedStringForKey(const std::string &key, const std::optional<std::string> &value,
                                    const std::optional<std::string> &table) override {
    asked.push_back(key + "|" + value.value_or("nil") + "|" + table.value_or("nil"));
    return "the tool cannot be launched";
  }
  std::optional<std::string> infoString(const std::string &) override { return std::nullopt; }
  std::optional<std::string> executablePath() override { return std::nullopt; }

  std::vector<std::string> asked;
};

// Sleeps as asked, and tells of it first.
class TellingThread final : public NS::Thread {
public:
  void sleepForTimeInterval(double seconds) override {
    intervals.push_back(seconds);
    if (onSleep)
      onSleep(intervals.size());
    real_.sleepForTimeInterval(seconds);
  }
  bool isMainThread() override { return real_.isMainThread(); }
  std::vector<std::string> callStackSymbols() override { return real_.callStackSymbols(); }

  std::vector<double> intervals;
  std::function<void(std::size_t)> onSleep;

private:
  NS::Thread &real_ = NS::Thread::shared();
};

// A tool that tells its process before it runs the lines of its script, and then
// stays.
struct StayingTool {
  Arguments doing(const std::string &script) const {
    return {"-c", "trap '' PIPE; echo $$ >" + folder.path("pid") + "; " + script +
                      "; exec sleep 1000 >&- 2>&-"};
  }
  bool hasToldItsProcess() const {
    return std::filesystem::exists(folder.path("pid")) && folder.content("pid").ends_with('\n');
  }
  // False once it has been killed and waited for. Ends it in any case.
  bool isLeft() const {
    return ::kill(std::stoi(folder.content("pid")), SIGKILL) == 0 || errno != ESRCH;
  }

  ScratchFolder folder;
};

constexpr const char *writingMuch = "head -c 300000 /dev/zero";
constexpr const char *writingManyErrors = "exec >&-; head -c 300000 /dev/zero >&2";
// Too little for either.
constexpr std::size_t littleMemory = 200'000;

// --- With completion

TEST(TaskRunnerCompletion, getsOutputStatusAndErrorOutputOnce) {
  LogRecorder log;
  Completions completions = runShell("echo out; echo err >&2; exit 3");
  ASSERT_EQ(completions.calls.size(), 1U);
  EXPECT_EQ(completions.calls[0].output, "out\n");
  EXPECT_EQ(completions.calls[0].status, 3);
  EXPECT_EQ(completions.calls[0].errorOutput, "err\n");
  EXPECT_FALSE(completions.calls[0].error);
  EXPECT_TRUE(log.lines().empty());
}

TEST(TaskRunnerCompletion, isCalledOnTheCallingThread) {
  std::thread::id seen;
  KWTaskRunner::shared().launchTask("/bin/true", {},
                                    [&](auto &&...) { seen = std::this_thread::get_id(); });
  EXPECT_EQ(seen, std::this_thread::get_id());
}

TEST(TaskRunnerCompletion, getsNilForWhiteSpaceAlone) {
  Completions completions = runShell("printf ' \\t\\r\\n \\302\\240\\n'; printf '\\n' >&2");
  ASSERT_EQ(completions.calls.size(), 1U);
  EXPECT_EQ(completions.calls[0].output, std::nullopt);
  EXPECT_EQ(completions.calls[0].errorOutput, std::nullopt);
  EXPECT_EQ(completions.calls[0].status, 0);
}

TEST(TaskRunnerCompletion, getsTextExactlyAsWritten) {
  EXPECT_EQ(runShell("printf '  x\\n'").calls.at(0).output, "  x\n");
  EXPECT_EQ(runShell("printf '\\303\\266\\000z'").calls.at(0).output, std::string("\u00f6\0z", 4));
}

TEST(TaskRunnerCompletion, getsNilForInvalidUTF8) {
  Completions completions = runShell("printf 'good \\377 bad'; printf '\\303' >&2");
  EXPECT_EQ(completions.calls.at(0).output, std::nullopt);
  EXPECT_EQ(completions.calls.at(0).errorOutput, std::nullopt);
  EXPECT_EQ(completions.calls.at(0).status, 0);
}

TEST(TaskRunnerCompletion, getsTheNumberOfTheSignal) {
  EXPECT_EQ(runShell("kill -15 $$").calls.at(0).status, SIGTERM);
}

TEST(TaskRunnerCompletion, ofAToolThatIsNotThereIsCalledTwice) {
  LogRecorder log;
  FakeBundle bundle;
  NS::ScopedOverride<NS::Bundle> override(bundle);
  Completions completions;
  KWTaskRunner::shared().launchTask("/missing/tool", {"a", "b c"}, "y", completions.handler());
  ASSERT_EQ(completions.calls.size(), 2U);
  expectTaskError(completions.calls[0], "the tool cannot be launched");
  expectTaskError(completions.calls[1], "launch path not accessible (No such file or directory)");
  EXPECT_EQ(completions.calls[0].errorOutput, std::nullopt);
  EXPECT_EQ(completions.calls[1].errorOutput, std::nullopt);
  EXPECT_EQ(bundle.asked, std::vector<std::string>{"ErrorDescRemoving_FailedToLaunchTask||Errors"});
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "Unable to execute /missing/tool. File doesn't seem to be executable.",
                "Error while invoking command /missing/tool with args (\n    a,\n    \"b c\"\n) "
                ": launch path not accessible (No such file or directory)"}));
}

TEST(TaskRunnerCompletion, mayBeNilInEveryCase) {
  LogRecorder log;
  KWTaskRunner::shared().launchTask("/bin/true", {}, nullptr);
  EXPECT_TRUE(log.lines().empty());
  KWTaskRunner::shared().launchTask("/missing/tool", {}, nullptr);
  EXPECT_EQ(log.lines().size(), 2U);
}

TEST(TaskRunnerCompletion, thatRaisesIsCalledAgainWithTheReason) {
  LogRecorder log;
  Completions completions;
  KWTaskRunner::shared().launchTask(
      "/bin/sh", {"-c", "echo out; echo err >&2"},
      [&, record = completions.handler()](const Output &output, long long status,
                                          const Output &errorOutput,
                                          const std::optional<NS::Error> &error) {
        record(output, status, errorOutput, error);
        if (!error)
          throw NS::Exception("Odd", "the caller is unhappy");
      });
  ASSERT_EQ(completions.calls.size(), 2U);
  EXPECT_EQ(completions.calls[0].output, "out\n");
  expectTaskError(completions.calls[1], "the caller is unhappy");
  EXPECT_EQ(completions.calls[1].errorOutput, "err\n") << "as read so far";
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_EQ(log.lines()[0].find("Error while invoking command /bin/sh with args ("), 0U);
  EXPECT_NE(log.lines()[0].find(" : the caller is unhappy"), std::string::npos);
}

TEST(TaskRunnerCompletion, thatRaisesAtTheFirstWarningEndsTheRun) {
  LogRecorder log;
  std::vector<std::string> descriptions;
  KWTaskRunner::shared().launchTask("/missing/tool", {}, [&](auto &&, auto &&, auto &&, auto &&e) {
    descriptions.push_back(e->localizedDescription());
    if (descriptions.size() == 1)
      throw NS::Exception("Odd", "enough");
  });
  ASSERT_EQ(descriptions.size(), 2U);
  EXPECT_EQ(descriptions[1], "enough") << "instead of the launch's own failure";
}

TEST(TaskRunnerCompletion, letsOtherExceptionsThroughWithEverythingClosed) {
  std::size_t before = openDescriptorCount();
  EXPECT_THROW(KWTaskRunner::shared().launchTask(
                   "/bin/true", {}, [](auto &&...) { throw std::runtime_error("not ours"); }),
               std::runtime_error);
  while (openDescriptorCount() > before + 2) // the reaping thread keeps a pipe of its own
    std::this_thread::yield();
}

TEST(TaskRunnerCompletion, neverComesForATooLargeOutputAndTheToolIsKilled) {
  for (const char *script : {writingMuch, writingManyErrors}) {
    StayingTool tool;
    Completions completions;
    Arguments arguments = tool.doing(script);
    {
      kwtest::AllocationsBelow scarcity(littleMemory);
      EXPECT_THROW(KWTaskRunner::shared().launchTask("/bin/sh", arguments, completions.handler()),
                   std::bad_alloc);
    }
    EXPECT_FALSE(tool.isLeft()) << script;
    EXPECT_TRUE(completions.calls.empty());
  }
}

TEST(TaskRunnerCompletion, ofTooLongACommandGetsTheReasonOnly) {
  LogRecorder log;
  Completions completions;
  KWTaskRunner::shared().launchTask("/bin/true", {std::string(1 << 20, 'x')},
                                    completions.handler());
  ASSERT_EQ(completions.calls.size(), 1U);
  expectTaskError(completions.calls[0], "launch failed (Argument list too long)");
}

// The tool reads once; that one read would contain a trailing newline. Then the
// pipe that it names still has a writer when the completion is called, and none
// when the call has returned.
TEST(TaskRunnerInput, reachesTheToolWithoutNewlineAndWithoutEnd) {
  auto holders = [](const std::string &pipe) {
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      count += std::filesystem::read_symlink(entry.path(), gone) == pipe;
    }
    return count;
  };
  std::string pipe;
  int holdersAtCompletion = -1;
  Output input;
  KWTaskRunner::shared().launchTask(
      "/bin/sh", {"-c", "dd bs=16 count=1 2>/dev/null; readlink /proc/self/fd/0 >&2"}, "y",
      [&](const Output &output, long long, const Output &errorOutput, auto &&) {
        input = output;
        pipe = errorOutput.value_or("\n");
        pipe.pop_back();
        holdersAtCompletion = holders(pipe);
      });
  EXPECT_EQ(input, "y");
  EXPECT_EQ(pipe.substr(0, 5), "pipe:");
  EXPECT_EQ(holdersAtCompletion, 1) << "the writing end";
  EXPECT_EQ(holders(pipe), 0);
}

TEST(TaskRunnerInput, mayBeEmptyText) {
  EXPECT_EQ(runShell("readlink /proc/self/fd/0 | cut -c1-5", "").calls.at(0).output, "pipe:\n");
}

TEST(TaskRunnerInput, thatIsNilLeavesTheAgentsOwn) {
  std::string own = std::filesystem::read_symlink("/proc/self/fd/0");
  EXPECT_EQ(runShell("readlink /proc/self/fd/0").calls.at(0).output, own + "\n");
}

TEST(TaskRunnerInput, thatTheToolDoesNotReadIsAFailure) {
  LogRecorder log;
  Completions completions = runShell("exec 0<&-; exit 0", std::string(1 << 20, 'y'));
  ASSERT_EQ(completions.calls.size(), 1U);
  expectTaskError(completions.calls[0], "writeData: Broken pipe");
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(TaskRunnerInput, thatTheToolDoesNotReadLeavesTheToolAtItsWork) {
  ScratchFolder folder;
  LogRecorder log;
  for (const char *name : {"go", "done"})
    ASSERT_EQ(::mkfifo(folder.path(name).c_str(), 0600), 0);
  Completions completions =
      runShell("cd " + folder.path() + "; echo $$ >pid; exec <&- >&- 2>&-; read line <go; " +
                   "echo $line >done",
               std::string(1 << 20, 'y'));
  expectTaskError(completions.calls.at(0), "writeData: Broken pipe");
  ASSERT_EQ(::kill(std::stoi(folder.content("pid")), 0), 0);
  folder.file("go", "went on\n");
  EXPECT_EQ(folder.content("done"), "went on\n");
}

TEST(TaskRunner, asksForTheEndEveryHundredthOfASecond) {
  ScratchFolder folder;
  std::string fifo = folder.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  int gate = ::open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  TellingThread thread;
  thread.onSleep = [&](std::size_t count) {
    if (count == 3) {
      ASSERT_EQ(::write(gate, "\n", 1), 1);
    }
  };
  NS::ScopedOverride<NS::Thread> override(thread);
  Completions completions = runShell("exec >&- 2>&-; read line < " + fifo + "; exit 6");
  ::close(gate);
  EXPECT_EQ(completions.calls.at(0).status, 6);
  ASSERT_GE(thread.intervals.size(), 3U);
  for (double interval : thread.intervals)
    EXPECT_EQ(interval, 0.009999999776482582);
}

// --- Captured output

TEST(TaskRunnerOutput, isTheStandardOutputAndTheResultCode) {
  ScratchFolder folder;
  long long code = -77;
  Output output;
  {
    StandardStreamInFile redirected(STDERR_FILENO, folder.path("errors"));
    output = KWTaskRunner::shared().getOutput("/bin/sh", {"-c", "echo out; echo err >&2; exit 5"},
                                              false, false, &code);
  }
  EXPECT_EQ(output, "out\n");
  EXPECT_EQ(code, 5);
  EXPECT_EQ(folder.content("errors"), "err\n") << "inherited from the agent";
}

TEST(TaskRunnerOutput, discardsSuppressedErrorOutput) {
  ScratchFolder folder;
  Output output;
  {
    StandardStreamInFile redirected(STDERR_FILENO, folder.path("errors"));
    output = KWTaskRunner::shared().getOutput("/bin/sh", {"-c", "echo err >&2; echo out"}, true,
                                              false, nullptr);
  }
  EXPECT_EQ(output, "out\n");
  EXPECT_EQ(folder.content("errors"), "");
}

TEST(TaskRunnerOutput, isTheErrorOutputWhereThatIsUsed) {
  for (bool suppress : {false, true})
    EXPECT_EQ(KWTaskRunner::shared().getOutput("/bin/sh", {"-c", "echo out; echo err >&2"},
                                               suppress, true, nullptr),
              "err\n");
}

TEST(TaskRunnerOutput, isNilWhenBlankAndUntrimmedOtherwise) {
  const KWTaskRunner &runner = KWTaskRunner::shared();
  EXPECT_EQ(runner.getOutput("/usr/bin/printf", {" \\n\\t "}, true, false, nullptr), std::nullopt);
  EXPECT_EQ(runner.getOutput("/bin/true", {}, true, false, nullptr), std::nullopt);
  EXPECT_EQ(runner.getOutput("/usr/bin/printf", {"  x\\n"}, true, false, nullptr), "  x\n");
  EXPECT_EQ(runner.getOutput("/usr/bin/printf", {"\\377"}, true, false, nullptr), std::nullopt);
}

TEST(TaskRunnerOutput, ofAFileThatIsNotExecutableIsNilWithTheCodeUntouched) {
  ScratchFolder folder;
  LogRecorder log;
  std::string file = folder.file("file", "#!/bin/sh\n");
  long long code = -77;
  for (const std::string &path : {file, folder.path("missing"), std::string()})
    EXPECT_EQ(KWTaskRunner::shared().getOutput(path, {}, false, false, &code), std::nullopt);
  EXPECT_EQ(code, -77);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "Unable to execute " + file + ". File doesn't seem to be executable.",
                             "Unable to execute " + folder.path("missing") +
                                 ". File doesn't seem to be executable.",
                             "Unable to execute . File doesn't seem to be executable."}));
}

TEST(TaskRunnerOutput, ofAFailedLaunchIsNilWithTheCodeUntouched) {
  ScratchFolder folder;
  LogRecorder log;
  std::string odd = folder.file("odd", "no program");
  ASSERT_EQ(::chmod(odd.c_str(), 0755), 0);
  long long code = -77;
  EXPECT_EQ(KWTaskRunner::shared().getOutput(odd, {"x"}, false, false, &code), std::nullopt);
  EXPECT_EQ(code, -77);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Error while invoking command " + odd +
                                     " with args (\n    x\n) : launch failed (Exec format error)"});
}

TEST(TaskRunnerOutput, isNotNilForLackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  ScratchFolder folder;
  std::string mark = folder.path("mark");
  for (std::size_t left : {0u, 1u, 2u, 3u}) {
    kwtest::FewDescriptorsLeft few(left);
    EXPECT_THROW(KWTaskRunner::shared().launchTaskAndGetOutput("/bin/sh", {"-c", ">" + mark}, true),
                 NS::ResourceShortage);
  }
  EXPECT_FALSE(std::filesystem::exists(mark));
}

TEST(TaskRunnerStatus, withoutADescriptorIsThatOfAFailedLaunch) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  LogRecorder log;
  {
    kwtest::FewDescriptorsLeft few;
    EXPECT_EQ(KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/bin/sh", {}), 0);
  }
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Error while invoking command /bin/sh with args (\n) : pipe: "
                                     "Too many open files"});
}

TEST(TaskRunner, tellsTheCompletionOfALackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  LogRecorder log;
  Completions completions;
  {
    kwtest::FewDescriptorsLeft few;
    KWTaskRunner::shared().launchTask("/bin/sh", {"-c", "exit 0"}, completions.handler());
  }
  ASSERT_EQ(completions.calls.size(), 1u);
  expectTaskError(completions.calls[0], "pipe: Too many open files");
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(TaskRunnerOutput, ofTheShortFormsIsOneStreamOrTheOther) {
  const KWTaskRunner &runner = KWTaskRunner::shared();
  Arguments both = {"-c", "echo out; echo err >&2"};
  EXPECT_EQ(runner.launchTaskAndGetOutput("/bin/sh", both, true), "out\n");
  EXPECT_EQ(runner.launchTaskAndGetOutput("/bin/sh", both, false), "err\n");
  EXPECT_EQ(runner.launchTaskAndGetOutput("/bin/sh", both), "err\n");
}

TEST(TaskRunnerOutput, thatIsTooLargeIsAnExceptionAndTheToolIsKilled) {
  for (bool useError : {false, true}) {
    StayingTool tool;
    Arguments arguments = tool.doing(useError ? writingManyErrors : writingMuch);
    long long code = -77;
    {
      kwtest::AllocationsBelow scarcity(littleMemory);
      EXPECT_THROW(KWTaskRunner::shared().getOutput("/bin/sh", arguments, true, useError, &code),
                   std::bad_alloc);
    }
    EXPECT_FALSE(tool.isLeft()) << useError;
    EXPECT_EQ(code, -77);
  }
}

// --- Termination status

TEST(TaskRunnerStatus, isTheExitStatusOrTheSignal) {
  const KWTaskRunner &runner = KWTaskRunner::shared();
  EXPECT_EQ(runner.launchTaskAndGetTermStatusWithCmd("/bin/sh", {"-c", "exit 0"}), 0);
  EXPECT_EQ(runner.launchTaskAndGetTermStatusWithCmd("/bin/sh", {"-c", "exit 200"}), 200);
  EXPECT_EQ(runner.launchTaskAndGetTermStatusWithCmd("/bin/sh", {"-c", "kill -9 $$"}, true), 9);
}

TEST(TaskRunnerStatus, ofAMissingToolIsSuccessWithoutAWord) {
  LogRecorder log;
  EXPECT_EQ(KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/missing/tool", {}), 0);
  EXPECT_EQ(KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/missing/tool", {}, true), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(TaskRunnerStatus, ofAFailedLaunchIsSuccessWithALogLine) {
  ScratchFolder folder;
  LogRecorder log;
  std::string odd = folder.file("odd", "no program");
  ASSERT_EQ(::chmod(odd.c_str(), 0755), 0);
  EXPECT_EQ(KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd(odd, {}), 0);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Error while invoking command " + odd +
                                     " with args (\n) : launch failed (Exec format error)"});
}

TEST(TaskRunnerStatus, suppressesErrorOutputOnlyWhenAsked) {
  ScratchFolder folder;
  {
    StandardStreamInFile redirected(STDERR_FILENO, folder.path("errors"));
    Arguments arguments = {"-c", "echo out; echo err-$0 >&2"};
    arguments.push_back("suppressed");
    KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/bin/sh", arguments, true);
    arguments.back() = "shown";
    KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/bin/sh", arguments, false);
  }
  EXPECT_EQ(folder.content("errors"), "err-shown\n");
}

// The pipe has no reader, so that the tool stays in its write until the test
// kills it.
TEST(TaskRunnerStatus, waitsForeverOnAToolThatFillsAPipe) {
  ScratchFolder folder;
  TellingThread thread;
  thread.onSleep = [&](std::size_t count) {
    if (count == 20)
      ::kill(std::stoi(folder.content("pid")), SIGKILL);
  };
  NS::ScopedOverride<NS::Thread> override(thread);
  std::string command =
      "echo $$ > " + folder.path("pid") + "; exec dd if=/dev/zero bs=1000 count=100 2>/dev/null";
  EXPECT_EQ(KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/bin/sh", {"-c", command}),
            SIGKILL);
  EXPECT_GE(thread.intervals.size(), 20U);
}

TEST(TaskRunnerStatus, thatCannotBeWaitedForIsAnExceptionAndTheToolIsKilled) {
  StayingTool tool;
  TellingThread thread;
  thread.onSleep = [&](std::size_t) {
    if (tool.hasToldItsProcess())
      throw std::bad_alloc();
  };
  NS::ScopedOverride<NS::Thread> override(thread);
  EXPECT_THROW(KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/bin/sh", tool.doing(":")),
               std::bad_alloc);
  EXPECT_FALSE(tool.isLeft());
}

// --- Fire and forget

TEST(TaskRunnerNoReply, ofAMissingToolIsZero) {
  LogRecorder log;
  EXPECT_EQ(KWTaskRunner::shared().launchTaskWithNoReply("/missing/tool", {}), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(TaskRunnerNoReply, doesNotWait) {
  ScratchFolder folder;
  std::string fifo = folder.path("fifo");
  std::string done = folder.path("done");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo(done.c_str(), 0600), 0);
  std::string command = "read line < " + fifo + "; echo $line > " + done;
  LogRecorder log;
  EXPECT_EQ(KWTaskRunner::shared().launchTaskWithNoReply("/bin/sh", {"-c", command}), 0);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{
                "Error while invoking command /bin/sh with args (\n    \"-c\",\n    \"" + command +
                "\"\n) : task still running"});
  std::ofstream(fifo) << "go on" << std::endl;
  std::string line;
  std::getline(std::ifstream(done), line);
  EXPECT_EQ(line, "go on");
}

TEST(TaskRunnerNoReply, ofAFailedLaunchIsZeroWithALogLine) {
  LogRecorder log;
  EXPECT_EQ(KWTaskRunner::shared().launchTaskWithNoReply("/bin/true", {std::string(1, '\0')}), 0);
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_NE(log.lines()[0].find(" : argument 1 contains a NUL byte"), std::string::npos);
}

// --- The class as a whole

class Replaced final : public KWTaskRunner {
public:
  void launchTask(const std::string &path, const Arguments &,
                  const std::optional<std::string> &input,
                  const CompletionHandler &) const override {
    calls.push_back("launch " + path + (input ? " with input" : " without input"));
  }
  Output getOutput(const std::string &path, const Arguments &, bool suppress, bool useError,
                   long long *code) const override {
    calls.push_back("output " + path + (suppress ? " suppress" : "") + (useError ? " error" : "") +
                    (code ? " code" : ""));
    return "replaced";
  }
  long long launchTaskAndGetTermStatusWithCmd(const std::string &path, const Arguments &,
                                              bool suppress) const override {
    calls.push_back("status " + path + (suppress ? " suppress" : ""));
    return 99;
  }
  using KWTaskRunner::launchTask;
  using KWTaskRunner::launchTaskAndGetTermStatusWithCmd;
  mutable std::vector<std::string> calls;
};

TEST(TaskRunner, callsTheWorkersOfADerivedClass) {
  Replaced runner;
  runner.launchTask("a", {}, nullptr);
  EXPECT_EQ(runner.launchTaskAndGetOutput("b", {}), "replaced");
  EXPECT_EQ(runner.launchTaskAndGetOutput("c", {}, true), "replaced");
  EXPECT_EQ(runner.launchTaskAndGetTermStatusWithCmd("d", {}), 99);
  EXPECT_EQ(runner.calls, (std::vector<std::string>{"launch a without input", "output b error",
                                                    "output c suppress", "status d"}));
}

TEST(TaskRunner, givesToolsNoDescriptorButTheStandardStreams) {
  Completions completions =
      runShell("dd bs=1 count=1 >/dev/null 2>&1; n=0; while [ $n -lt 256 ]; do "
               "[ -e /proc/$$/fd/$n ] && printf '%s ' $n; n=$((n+1)); done",
               "y");
  EXPECT_EQ(completions.calls.at(0).output, "0 1 2 ");
}

TEST(TaskRunner, runsTwoHundredToolsFromSixteenThreadsAtOnce) {
  constexpr int tools = 200;
  KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd("/bin/true", {});
  std::size_t before = openDescriptorCount();
  std::atomic<int> next{0};
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 16; ++thread)
    threads.emplace_back([&] {
      for (int number = next++; number < tools; number = next++) {
        std::string text = std::to_string(number);
        Completions completions =
            runShell("head -c 100000 /dev/zero | tr '\\0' x; echo " + text + "; echo err-" + text +
                     " >&2; exit " + std::to_string(number % 250));
        const Completion &call = completions.calls.at(0);
        right += call.output == std::string(100000, 'x') + text + "\n" &&
                 call.errorOutput == "err-" + text + "\n" && call.status == number % 250;
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(right, tools);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "no child is left, running or not";
  EXPECT_EQ(errno, ECHILD);
  while (openDescriptorCount() > before)
    std::this_thread::yield();
}

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

TEST(TaskRunner, capturesFiftyMegabytesWholeAndLetsGoOfThem) {
  constexpr std::size_t size = 50 * 1024 * 1024;
  std::size_t before = residentBytes();
  bool whole = false;
  KWTaskRunner::shared().launchTask("/bin/sh", {"-c", "head -c 52428800 /dev/zero | tr '\\0' x"},
                                    [&](const Output &output, long long status, auto &&, auto &&) {
                                      whole = status == 0 && output && output->size() == size &&
                                              output->find_first_not_of('x') == std::string::npos;
                                    });
  EXPECT_TRUE(whole);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  // A sanitizer keeps freed memory back on purpose.
  EXPECT_LT(residentBytes(), before + size / 2);
#else
  static_cast<void>(before);
#endif
}

} // namespace
