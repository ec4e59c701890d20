// Waits on descriptors, opening without effects, and programs that are started.
#include "Foundation/Descriptors/Internal/Descriptors.h"

#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Descriptors/Pipe.h"
#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"
#include "Support/ThreadState.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using NS::descriptors::Program;
using NS::descriptors::Readiness;
using NS::descriptors::waitForReading;

int readingEnd(NS::Pipe &pipe) {
  return pipe.fileHandleForReading().fileDescriptor();
}

int writingEnd(NS::Pipe &pipe) {
  return pipe.fileHandleForWriting().fileDescriptor();
}

// The three answers of a wait, as text.
std::string told(const Readiness &ready) {
  return std::string(ready.first ? "first " : "") + (ready.firstHasData ? "data " : "") +
         (ready.second ? "second" : "");
}

TEST(Descriptors, tellWhichOfTwoIsReady) {
  auto one = NS::Pipe::pipe(), other = NS::Pipe::pipe();
  auto wait = [&] { return told(waitForReading(readingEnd(*one), readingEnd(*other), 0)); };
  EXPECT_EQ(wait(), "") << "the time is over at once";
  other->fileHandleForWriting().writeData("x");
  EXPECT_EQ(wait(), "second");
  one->fileHandleForWriting().writeData("x");
  EXPECT_EQ(wait(), "first data second");
  EXPECT_EQ(told(waitForReading(readingEnd(*one), -1)), "first data ");
  EXPECT_EQ(told(waitForReading(-1, readingEnd(*other))), "second");
}

TEST(Descriptors, tellAHangUpFromData) {
  auto pipe = NS::Pipe::pipe();
  pipe->fileHandleForWriting().closeFile();
  EXPECT_EQ(told(waitForReading(readingEnd(*pipe), -1)), "first ");
}

TEST(Descriptors, areWaitedForOnAfterASignal) {
  static std::atomic<int> received;
  received = 0;
  struct sigaction counting {};
  counting.sa_handler = [](int) { ++received; };
  struct sigaction former;
  ASSERT_EQ(::sigaction(SIGUSR1, &counting, &former), 0);
  auto pipe = NS::Pipe::pipe();
  std::atomic<int> identifier = 0;
  std::string answer;
  std::thread waiting([&] {
    identifier = ::gettid();
    answer = told(waitForReading(readingEnd(*pipe), -1));
  });
  while (identifier == 0 || !kwtest::isAsleep(identifier))
    std::this_thread::yield();
  ::pthread_kill(waiting.native_handle(), SIGUSR1);
  while (received == 0)
    std::this_thread::yield();
  pipe->fileHandleForWriting().writeData("x");
  waiting.join();
  ::sigaction(SIGUSR1, &former, nullptr);
  EXPECT_EQ(answer, "first data ");
}

// A process that may open one descriptor may not wait for two.
TEST(Descriptors, countAsReadyWhereTheSystemCannotWait) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              auto [reading, writing] = NS::descriptors::openPipe();
              rlimit limit{1, 1};
              if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
                return "no limit";
              auto ready = NS::descriptors::waitForReading(reading, writing);
              return ready.first && ready.second && !ready.firstHasData ? "" : "not ready";
            }),
            "");
}

TEST(OpenFileOrFolder, tellsWhyItDoesNotOpenAnItem) {
  kwtest::ScratchFolder scratch;
  ASSERT_EQ(::mkfifo(scratch.path("fifo").c_str(), 0600), 0);
  struct Row {
    const char *name;
    int errnum;
  };
  for (auto [name, errnum] : {Row{"missing", ENOENT}, Row{"fifo", EOPNOTSUPP}}) {
    errno = 0;
    EXPECT_EQ(NS::descriptors::openFileOrFolder(scratch.path(name).c_str(), O_RDONLY), -1) << name;
    EXPECT_EQ(errno, errnum) << name;
  }
}

TEST(ExitDescriptor, isReadableOnceTheChildHasEnded) {
  auto held = NS::Pipe::pipe();
  int child = 0;
  Program program{"/bin/cat", {"cat"}, {readingEnd(*held), -1, -1}};
  ASSERT_EQ(NS::descriptors::spawn(program, child), 0);
  int watch = NS::descriptors::openExitDescriptor(child);
  ASSERT_GE(watch, 0);
  EXPECT_NE(::fcntl(watch, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(told(waitForReading(watch, -1, 0)), "") << "it still runs";
  held->fileHandleForWriting().closeFile();
  EXPECT_EQ(told(waitForReading(watch, -1)), "first data ");
  ::close(watch);
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}

// Returns the standard output of the program. Its input is a pipe that ends
// once it has been started.
std::string outputOf(const std::string &path, const std::vector<std::string> &arguments) {
  auto input = NS::Pipe::pipe(), output = NS::Pipe::pipe();
  int child = 0;
  if (NS::descriptors::spawn({path, arguments, {readingEnd(*input), writingEnd(*output), -1}},
                             child) != 0)
    return "not started";
  input->fileHandleForWriting().closeFile();
  output->fileHandleForWriting().closeFile();
  std::string text = output->fileHandleForReading().readDataToEndOfFile();
  ::waitpid(child, nullptr, 0);
  return text;
}

TEST(Spawn, givesAnyDescriptorAsAStandardStream) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              auto pipe = NS::Pipe::pipe();
              ::dup2(writingEnd(*pipe), STDIN_FILENO);
              pipe->fileHandleForWriting().closeFile();
              int child = 0;
              Program program{"/bin/echo", {"echo", "text"}, {-1, STDIN_FILENO, -1}};
              if (NS::descriptors::spawn(program, child) != 0)
                return "not started";
              ::close(STDIN_FILENO);
              std::string output = pipe->fileHandleForReading().readDataToEndOfFile();
              return output == "text\n" ? "" : output + " was written";
            }),
            "");
}

TEST(Spawn, givesTheProgramTheEffectiveUserOfThisProcess) {
  if (!kwtest::isRoot())
    GTEST_SKIP() << "only root has a further user to become";
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              if (::seteuid(65534) != 0)
                return "still root";
              return outputOf("/usr/bin/id", {"id", "-u"});
            }),
            "65534\n");
}

// The soft limits of a process that has raised its own from this one, and of a
// program that it starts.
std::string limitsAfterRaising(rlim_t soft, rlim_t hard) {
  return kwtest::inForkedChild([&]() -> std::string {
    rlimit limit{soft, hard};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
      return "no limit";
    NS::raiseDescriptorLimit();
    NS::raiseDescriptorLimit(); // the second time changes nothing
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return std::to_string(limit.rlim_cur) + ", " +
           outputOf("/bin/sh", {"sh", "-c", "read line; ulimit -n"});
  });
}

TEST(DescriptorLimit, isRaisedForThisProcessAlone) {
  EXPECT_EQ(limitsAfterRaising(100, 200), "200, 100\n");
  EXPECT_EQ(limitsAfterRaising(200, 200), "200, 200\n");
}

} // namespace
