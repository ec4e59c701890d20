// Launches, the child's inheritance, its outcome, and that it leaves nothing
// behind.
#include "Foundation/Processes/Task.h"

#include "Foundation/Base/Environment.h"
#include "Foundation/Base/Exception.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Processes/POSIX/ChildProcess.h"
#include "Foundation/Threads/Thread.h"
#include "Support/MemoryLimit.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using kwtest::FewDescriptorsLeft;
using kwtest::ScratchFolder;
using Reason = NS::TaskTerminationReason;

// Writes each open descriptor's number without opening one.
constexpr const char *listDescriptors =
    "n=0; while [ $n -lt 1024 ]; do [ -e /proc/$$/fd/$n ] && printf '%s ' $n; n=$((n+1)); done";

std::shared_ptr<NS::Task> shell(const std::string &command) {
  auto task = NS::Task::create();
  task->setLaunchPath("/bin/sh");
  task->setArguments({"-c", command});
  return task;
}

// The command's standard output.
std::string outputOf(NS::Task &task) {
  auto pipe = NS::Pipe::pipe();
  task.setStandardOutput(pipe);
  task.launch();
  std::string output = pipe->fileHandleForReading().readDataToEndOfFile();
  task.waitUntilExit();
  return output;
}

std::string reasonOf(const std::function<void()> &call) {
  try {
    call();
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::InvalidArgumentException);
    return exception.reason();
  }
  return "nothing raised";
}

std::string launchFailure(const std::string &path, std::vector<std::string> arguments = {}) {
  return reasonOf([&] {
    auto task = NS::Task::create();
    task->setLaunchPath(path);
    task->setArguments(std::move(arguments));
    task->launch();
    task->waitUntilExit();
  });
}

// Whether the system still knows the child: a zombie is known.
bool isKnown(int pid) {
  return ::kill(pid, 0) == 0;
}

void waitUntilUnknown(int pid) {
  while (isKnown(pid))
    std::this_thread::yield();
}

TEST(Task, reportsTheExitStatus) {
  for (int status : {0, 1, 42, 255}) {
    auto task = shell("exit " + std::to_string(status));
    task->launch();
    task->waitUntilExit();
    EXPECT_FALSE(task->isRunning());
    EXPECT_EQ(task->terminationStatus(), status);
    EXPECT_EQ(task->terminationReason(), Reason::Exit);
  }
}

TEST(Task, tellsASignalFromAnExitWithTheSameNumber) {
  auto killed = shell("kill -9 $$");
  killed->launch();
  killed->waitUntilExit();
  EXPECT_EQ(killed->terminationStatus(), SIGKILL);
  EXPECT_EQ(killed->terminationReason(), Reason::UncaughtSignal);
  auto exited = shell("exit 9");
  exited->launch();
  exited->waitUntilExit();
  EXPECT_EQ(exited->terminationStatus(), 9);
  EXPECT_EQ(exited->terminationReason(), Reason::Exit);
}

TEST(Task, passesArgumentsAsTheyAre) {
  auto task = NS::Task::create();
  task->setLaunchPath("/usr/bin/printf");
  task->setArguments({"<%s>", "", "a b", "$HOME", "`id`", "*", "'\"\\", "\xff\n", "-x"});
  EXPECT_EQ(outputOf(*task), "<><a b><$HOME><`id`><*><'\"\\><\xff\n><-x>");
}

TEST(Task, connectsAllThreeStreams) {
  auto task = shell("read line; echo out-$line; echo err-$line >&2");
  auto input = NS::Pipe::pipe();
  auto errors = NS::Pipe::pipe();
  task->setStandardInput(input);
  task->setStandardError(errors);
  input->fileHandleForWriting().writeData("text\n");
  EXPECT_EQ(outputOf(*task), "out-text\n");
  EXPECT_EQ(errors->fileHandleForReading().readDataToEndOfFile(), "err-text\n");
}

TEST(Task, mayShareOnePipeForBothOutputs) {
  auto task = shell("echo one; echo two >&2; echo three");
  auto pipe = NS::Pipe::pipe();
  task->setStandardOutput(pipe);
  task->setStandardError(pipe);
  task->launch();
  EXPECT_EQ(pipe->fileHandleForReading().readDataToEndOfFile(), "one\ntwo\nthree\n");
}

TEST(Task, closesTheChildsEndsInTheParentAtLaunch) {
  auto task = shell("exit 0");
  auto input = NS::Pipe::pipe();
  auto output = NS::Pipe::pipe();
  task->setStandardInput(input);
  task->setStandardOutput(output);
  task->launch();
  EXPECT_EQ(input->fileHandleForReading().fileDescriptor(), -1);
  EXPECT_EQ(output->fileHandleForWriting().fileDescriptor(), -1);
  EXPECT_GE(input->fileHandleForWriting().fileDescriptor(), 3);
  EXPECT_GE(output->fileHandleForReading().fileDescriptor(), 3);
  task->waitUntilExit();
}

TEST(Task, inheritsTheEnvironmentAsItIsAtLaunch) {
  NS::setEnvironmentVariable("BLOCKSIZE", "512");
  auto task = shell("printf %s \"$BLOCKSIZE\"");
  EXPECT_EQ(outputOf(*task), "512");
  ::unsetenv("BLOCKSIZE");
}

TEST(TaskLaunch, ofAMissingProgramRaises) {
  ScratchFolder folder;
  EXPECT_EQ(launchFailure(folder.path("missing")),
            "launch path not accessible (No such file or directory)");
  EXPECT_EQ(launchFailure(folder.file("file", "") + "/below"),
            "launch path not accessible (Not a directory)");
  EXPECT_EQ(launchFailure("/" + std::string(300, 'x')),
            "launch path not accessible (File name too long)");
}

TEST(TaskLaunch, ofAFileThatMayNotBeExecutedRaises) {
  ScratchFolder folder;
  EXPECT_EQ(launchFailure(folder.file("text", "#!/bin/sh\n")),
            "launch path not accessible (Permission denied)");
  EXPECT_EQ(launchFailure(folder.path()), "launch path not accessible (Permission denied)");
}

TEST(TaskLaunch, ofNoKnownFormatRaisesInsteadOfAskingAShell) {
  ScratchFolder folder;
  std::string path = folder.file("odd", "touch " + folder.path("ran") + "\n");
  ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  EXPECT_EQ(launchFailure(path), "launch failed (Exec format error)");
  EXPECT_EQ(folder.content("ran"), "");
}

TEST(TaskLaunch, ofTooManyArgumentsRaises) {
  EXPECT_EQ(launchFailure("/bin/true", {std::string(1 << 20, 'x')}),
            "launch failed (Argument list too long)");
  EXPECT_EQ(launchFailure("/bin/true", std::vector<std::string>(1 << 20, "some argument")),
            "launch failed (Argument list too long)");
}

TEST(TaskLaunch, refusesTextThatACStringWouldCutShort) {
  EXPECT_EQ(launchFailure(std::string("/bin/true\0x", 11)), "launch path contains a NUL byte");
  EXPECT_EQ(launchFailure("/bin/true", {std::string("a\0b", 3)}), "argument 1 contains a NUL byte");
  EXPECT_EQ(launchFailure("/bin/true", {"good", std::string("a\0b", 3)}),
            "argument 2 contains a NUL byte");
}

TEST(TaskLaunch, refusesARelativePathAndNone) {
  EXPECT_EQ(launchFailure("bin/true"), "launch path not absolute");
  EXPECT_EQ(launchFailure("true"), "launch path not absolute");
  EXPECT_EQ(launchFailure(""), "launch path not set");
}

TEST(TaskLaunch, refusesASecondTimeAndAClosedPipe) {
  auto task = shell("exit 0");
  task->launch();
  EXPECT_EQ(reasonOf([&] { task->launch(); }), "task already launched");
  task->waitUntilExit();
  auto pipe = NS::Pipe::pipe();
  pipe->fileHandleForWriting().closeFile();
  auto second = shell("exit 0");
  second->setStandardOutput(pipe);
  EXPECT_EQ(reasonOf([&] { second->launch(); }), "pipe of standard stream 1 is closed");
  auto input = NS::Pipe::pipe();
  input->fileHandleForReading().closeFile();
  auto third = shell("exit 0");
  third->setStandardInput(input);
  EXPECT_EQ(reasonOf([&] { third->launch(); }), "pipe of standard stream 0 is closed");
}

TEST(TaskLaunch, thatFailedLeavesPipesAndCanBeRepeated) {
  // The first launch of a process opens the reaper's permanent descriptors.
  auto first = shell("exit 0");
  first->launch();
  waitUntilUnknown(first->processIdentifier());
  std::size_t before = kwtest::openDescriptorCount();
  {
    auto task = NS::Task::create();
    auto pipe = NS::Pipe::pipe();
    task->setStandardOutput(pipe);
    task->setLaunchPath("/missing");
    EXPECT_NE(reasonOf([&] { task->launch(); }), "nothing raised");
    EXPECT_EQ(task->processIdentifier(), 0);
    EXPECT_FALSE(task->isRunning());
    EXPECT_GE(pipe->fileHandleForWriting().fileDescriptor(), 3);
    task->setLaunchPath("/bin/echo");
    task->setArguments({"text"});
    task->launch();
    EXPECT_EQ(pipe->fileHandleForReading().readDataToEndOfFile(), "text\n");
    waitUntilUnknown(task->processIdentifier());
  }
  while (kwtest::openDescriptorCount() > before)
    std::this_thread::yield();
}

TEST(Task, beforeItsLaunchKnowsNothing) {
  auto task = shell("exit 0");
  EXPECT_FALSE(task->isRunning());
  EXPECT_EQ(task->processIdentifier(), 0);
  EXPECT_EQ(reasonOf([&] { task->terminationStatus(); }), "task not launched");
  EXPECT_EQ(reasonOf([&] { task->terminationReason(); }), "task not launched");
  EXPECT_EQ(reasonOf([&] { task->waitUntilExit(); }), "task not launched");
}

TEST(Task, whileRunningHasNoStatus) {
  auto task = shell("read line");
  auto input = NS::Pipe::pipe();
  task->setStandardInput(input);
  task->launch();
  EXPECT_TRUE(task->isRunning());
  EXPECT_TRUE(isKnown(task->processIdentifier()));
  EXPECT_EQ(reasonOf([&] { task->terminationStatus(); }), "task still running");
  EXPECT_EQ(reasonOf([&] { task->terminationReason(); }), "task still running");
  input->fileHandleForWriting().writeData("\n");
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), 0);
}

// A mask of a process's status record, without the two signals that the C
// library keeps for itself.
std::uint64_t signalsOf(const std::string &status, const std::string &field) {
  std::size_t start = status.find(field);
  if (start == std::string::npos)
    throw std::runtime_error("no " + field);
  std::uint64_t mask = std::stoull(status.substr(start + field.size(), 16), nullptr, 16);
  return mask & ~(std::uint64_t{3} << 31);
}

// The state in which the agent's own threads may be.
TEST(Task, startsWithDefaultSignalsForAnySettingsOfThisProcess) {
  auto former = std::signal(SIGPIPE, SIG_IGN);
  auto formerHangup = std::signal(SIGHUP, SIG_IGN);
  auto formerEnds = std::signal(SIGCHLD, SIG_IGN);
  sigset_t blocked;
  sigset_t formerMask;
  sigfillset(&blocked);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &formerMask);
  auto task = NS::Task::create();
  task->setLaunchPath("/bin/cat");
  task->setArguments({"/proc/self/status"});
  std::string status = outputOf(*task);
  ::pthread_sigmask(SIG_SETMASK, &formerMask, nullptr);
  std::signal(SIGPIPE, former);
  std::signal(SIGHUP, formerHangup);
  std::signal(SIGCHLD, formerEnds);
  EXPECT_EQ(signalsOf(status, "SigBlk:\t"), 0U);
  EXPECT_EQ(signalsOf(status, "SigIgn:\t"), 0U);
}

TEST(Task, inheritsNoDescriptorButTheStandardStreamsWhileTenOthersRun) {
  int stray = ::open("/", O_RDONLY); // as a careless library would
  std::vector<std::shared_ptr<NS::Task>> others;
  std::vector<std::shared_ptr<NS::Pipe>> inputs;
  for (int number = 0; number < 10; ++number) {
    auto other = shell("read line");
    inputs.push_back(NS::Pipe::pipe());
    other->setStandardInput(inputs.back());
    other->setStandardOutput(NS::Pipe::pipe());
    other->setStandardError(NS::Pipe::pipe());
    other->launch();
    others.push_back(std::move(other));
  }
  auto task = shell(listDescriptors);
  EXPECT_EQ(outputOf(*task), "0 1 2 ");
  for (auto &input : inputs)
    input->fileHandleForWriting().writeData("\n");
  for (auto &other : others)
    other->waitUntilExit();
  ::close(stray);
}

TEST(Task, inheritsNotTheFirstDescriptorAfterTheStandardStreams) {
  constexpr int first = STDERR_FILENO + 1;
  int flags = ::fcntl(first, F_GETFD);
  if (flags < 0)
    ASSERT_EQ(::dup2(STDERR_FILENO, first), first);
  else
    ASSERT_EQ(::fcntl(first, F_SETFD, 0), 0);
  EXPECT_EQ(outputOf(*shell(listDescriptors)), "0 1 2 ");
  if (flags < 0)
    ::close(first);
  else
    ASSERT_EQ(::fcntl(first, F_SETFD, flags), 0);
}

TEST(Task, inheritsNoDescriptorWhileOtherThreadsLaunch) {
  std::atomic<bool> done{false};
  std::vector<std::thread> launchers;
  for (int number = 0; number < 3; ++number)
    launchers.emplace_back([&] {
      while (!done)
        EXPECT_EQ(outputOf(*shell("echo x")), "x\n");
    });
  for (int round = 0; round < 20; ++round)
    EXPECT_EQ(outputOf(*shell(listDescriptors)), "0 1 2 ");
  done = true;
  for (std::thread &launcher : launchers)
    launcher.join();
}

TEST(Task, thatEndedIsReapedWithoutAQuestion) {
  auto task = shell("exit 3");
  task->launch();
  waitUntilUnknown(task->processIdentifier());
  EXPECT_FALSE(task->isRunning());
  EXPECT_EQ(task->terminationStatus(), 3);
}

TEST(Task, droppedWhileRunningIsReapedAtItsEnd) {
  auto input = NS::Pipe::pipe();
  int pid = 0;
  {
    auto task = shell("read line");
    task->setStandardInput(input);
    task->launch();
    pid = task->processIdentifier();
  }
  EXPECT_TRUE(isKnown(pid));
  input->fileHandleForWriting().writeData("\n");
  waitUntilUnknown(pid);
}

TEST(Task, isReapedEvenWithoutADescriptorToWatchItBy) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  auto first = shell("exit 0"); // so that the reaping thread exists and has its memory
  first->launch();
  first->waitUntilExit();
  auto input = NS::Pipe::pipe();
  auto task = shell("read line; exit 4");
  task->setStandardInput(input);
  {
    FewDescriptorsLeft scarcity;
    task->launch();
    input->fileHandleForWriting().writeData("\n");
    task->waitUntilExit();
  }
  EXPECT_EQ(task->terminationStatus(), 4);
}

// Lets this user have no further process, which holds for no process of root.
TEST(Task, withoutAFurtherProcessIsNotRefusedButThrows) {
  pid_t child = ::fork();
  if (child == 0) {
    NS::prepareToAdopt(); // so that the reaping thread exists
    struct rlimit none = {0, 0};
    if (::setrlimit(RLIMIT_NPROC, &none) != 0 || (::geteuid() == 0 && ::setuid(12345) != 0))
      ::_exit(2);
    try {
      shell("exit 0")->launch();
    } catch (const NS::ResourceShortage &) {
      ::_exit(0);
    } catch (const std::exception &) {
    }
    ::_exit(1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Task, waitsForItsOwnChildrenOnly) {
  pid_t foreign = ::fork();
  if (foreign == 0)
    ::_exit(7);
  auto task = shell("exit 0");
  task->launch();
  task->waitUntilExit();
  int status = 0;
  ASSERT_EQ(::waitpid(foreign, &status, 0), foreign) << "still there for its own parent code";
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(Task, whoseStatusOtherCodeTookEndsWithoutOne) {
  auto former = std::signal(SIGCHLD, SIG_IGN); // the system reaps by itself
  auto task = shell("exit 0");
  task->launch();
  task->waitUntilExit();
  std::signal(SIGCHLD, former);
  EXPECT_EQ(task->terminationStatus(), -1);
}

TEST(Task, answersSeveralThreadsAtOnce) {
  auto input = NS::Pipe::pipe();
  auto task = shell("read line; exit 5");
  task->setStandardInput(input);
  task->launch();
  std::atomic<int> right{0};
  std::vector<std::thread> askers;
  for (int number = 0; number < 8; ++number)
    askers.emplace_back([&, waits = number % 2 == 0] {
      if (waits)
        task->waitUntilExit();
      while (task->isRunning())
        std::this_thread::yield();
      right += task->terminationStatus() == 5 && task->terminationReason() == Reason::Exit;
    });
  input->fileHandleForWriting().writeData("\n");
  for (std::thread &asker : askers)
    asker.join();
  EXPECT_EQ(right, 8);
}

// A task with a pipe for its output that ends by itself within the limit.
std::shared_ptr<NS::Task> limitedShell(const std::string &command,
                                       std::chrono::milliseconds limit = std::chrono::hours(1)) {
  auto task = shell(command);
  task->setStandardOutput(NS::Pipe::pipe());
  task->setTimeLimit(limit);
  task->launch();
  return task;
}

TEST(TaskOutput, isReadToItsEnd) {
  auto task = limitedShell("echo one; head -c 200000 /dev/zero; echo two");
  auto output = task->readOutput(1 << 20);
  ASSERT_TRUE(output);
  EXPECT_EQ(output->size(), 200'008u);
  EXPECT_TRUE(output->starts_with("one\n") && output->ends_with("two\n"));
}

TEST(TaskOutput, mayBeAsLongAsTheLimitAndNoLonger) {
  EXPECT_EQ(limitedShell("echo text")->readOutput(5), "text\n");
  EXPECT_EQ(limitedShell("echo text")->readOutput(4), std::nullopt);
}

// A shell that ends, while its child inherits the pipe and lives on until it is
// told by the FIFO.
std::shared_ptr<NS::Task> shellWithAChild(const std::string &fifo) {
  EXPECT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  return limitedShell("echo text; read line <'" + fifo + "' &");
}

void releaseChild(const std::string &fifo) {
  ::close(::open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
}

TEST(TaskOutput, ofAProgramThatEndedIsCompleteThoughAnotherHoldsThePipe) {
  kwtest::ScratchFolder scratch;
  auto task = shellWithAChild(scratch.path("fifo"));
  EXPECT_EQ(task->readOutput(1 << 20), "text\n");
  releaseChild(scratch.path("fifo"));
}

TEST(TaskOutput, isCompleteTooWithoutADescriptorToWatchTheProgramBy) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  kwtest::ScratchFolder scratch;
  auto task = shellWithAChild(scratch.path("fifo"));
  {
    FewDescriptorsLeft scarcity;
    EXPECT_EQ(task->readOutput(1 << 20), "text\n");
  }
  releaseChild(scratch.path("fifo"));
}

TEST(TaskOutput, ofAProgramThatRunsTooLongIsNothingAndTheProgramIsKilled) {
  auto task = limitedShell("echo text; exec sleep 1000", std::chrono::milliseconds(50));
  EXPECT_EQ(task->readOutput(1 << 20), std::nullopt);
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), SIGKILL);
  EXPECT_EQ(task->terminationReason(), Reason::UncaughtSignal);
}

TEST(TaskOutput, ofAProgramWithoutEndIsNothingAndTheProgramIsKilled) {
  auto task = limitedShell("trap '' PIPE; exec cat /dev/zero");
  EXPECT_EQ(task->readOutput(100'000), std::nullopt);
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), SIGKILL);
}

TEST(TaskOutput, thatDoesNotFitInMemoryIsAnExceptionAndTheProgramIsKilled) {
  if (kwtest::addsMemory)
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit in the limit";
  auto task = limitedShell("trap '' PIPE; exec cat /dev/zero");
  {
    kwtest::MemoryLimit limit(32u << 20);
    EXPECT_THROW(task->readOutput(std::size_t{1} << 40), std::bad_alloc);
  }
  EXPECT_FALSE(task->isRunning());
}

TEST(Task, isGoneOnceItHasBeenKilled) {
  auto task = limitedShell("exec sleep 1000");
  task->kill();
  EXPECT_FALSE(task->isRunning());
  EXPECT_EQ(task->terminationStatus(), SIGKILL);
  EXPECT_EQ(::kill(task->processIdentifier(), 0), -1) << "it has been waited for";
}

TEST(Task, thatHasEndedStaysAsItEndedWhenItIsKilled) {
  auto task = limitedShell("exit 3");
  task->waitUntilExit();
  task->kill();
  EXPECT_EQ(task->terminationStatus(), 3);
}

TEST(Task, isKilledOnlyAfterItsLaunch) {
  auto task = shell("exit 0");
  EXPECT_EQ(reasonOf([&] { task->kill(); }), "task not launched");
}

TEST(KillUnlessDone, killsUnlessTheWorkIsDone) {
  for (bool isDone : {false, true}) {
    auto task = shell("read line; exit 3");
    auto input = NS::Pipe::pipe();
    task->setStandardInput(input);
    task->launch();
    {
      NS::KillUnlessDone work(*task);
      work.isDone = isDone;
    }
    input->fileHandleForWriting().closeFile();
    task->waitUntilExit();
    EXPECT_EQ(task->terminationStatus(), isDone ? 3 : SIGKILL);
  }
}

TEST(TaskOutput, isReadWithoutADescriptorToWatchTheProgramBy) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  auto task = limitedShell("echo text; exec sleep 0");
  FewDescriptorsLeft scarcity;
  EXPECT_EQ(task->readOutput(1 << 20), "text\n");
}

TEST(TaskOutput, needsALaunchAndAPipe) {
  auto task = shell("exit 0");
  EXPECT_EQ(reasonOf([&] { task->readOutput(1); }), "task not launched");
  task->launch();
  EXPECT_EQ(reasonOf([&] { task->readOutput(1); }), "standard output is no pipe");
  task->waitUntilExit();
}

TEST(Task, isKilledAtItsTimeLimitWithoutAReader) {
  auto task = limitedShell("exec sleep 1000", std::chrono::milliseconds(50));
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), SIGKILL);
}

TEST(Task, withTimeLeftEndsByItself) {
  auto task = limitedShell("exit 3");
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), 3);
}

TEST(Task, mayHaveTheNullDeviceForItsStreams) {
  auto task = shell("cat; echo lost; echo lost >&2; echo $?");
  task->setStandardInput(NS::Pipe::nullDevice());
  task->setStandardOutput(NS::Pipe::nullDevice());
  task->setStandardError(NS::Pipe::nullDevice());
  task->launch();
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), 0);
}

TEST(Task, needsNoThreadPerChild) {
  auto threadCount = [] {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto &entry :
         std::filesystem::directory_iterator("/proc/self/task"))
      ++count;
    return count;
  };
  auto first = shell("exit 0");
  first->launch();
  first->waitUntilExit();
  std::size_t before = threadCount();
  std::vector<std::shared_ptr<NS::Task>> tasks;
  for (int number = 0; number < 20; ++number) {
    tasks.push_back(shell("read line"));
    tasks.back()->setStandardInput(NS::Pipe::pipe());
    tasks.back()->launch();
  }
  EXPECT_EQ(threadCount(), before);
  tasks.clear(); // and with them the pipes, so that every child sees the end
}

} // namespace
