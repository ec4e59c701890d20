// One child process, apart from the thread that reaps all.
#include "Foundation/Processes/POSIX/ChildProcess.h"

#include "Support/Allocations.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"
#include "Support/ThreadState.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int status = 3;

// A child that has ended and that nothing has reaped yet.
pid_t endedChild() {
  pid_t child = ::fork();
  if (child == 0)
    ::_exit(status);
  siginfo_t info{};
  EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  return child;
}

bool isReaped(pid_t child) {
  return ::waitpid(child, nullptr, WNOHANG) < 0 && errno == ECHILD;
}

void expectItsStatus(NS::ChildProcess &child) {
  std::optional<NS::ChildOutcome> outcome = child.outcome();
  ASSERT_TRUE(outcome);
  EXPECT_FALSE(outcome->signalled);
  EXPECT_EQ(outcome->status, status);
}

TEST(ChildProcess, hasNoExitDescriptorAfterItsEnd) {
  NS::ChildProcess child;
  child.setIdentifier(endedChild());
  EXPECT_FALSE(child.openExitDescriptor());
  expectItsStatus(child);
}

// When other code has reaped it meanwhile, its number may be another process's.
TEST(ChildProcess, isAskedForItsEndBeforeItIsKilled) {
  NS::ChildProcess child;
  child.setIdentifier(endedChild());
  child.kill();
  EXPECT_TRUE(isReaped(child.identifier()));
  expectItsStatus(child);
}

// A child that waits for a signal and may run for so long.
std::shared_ptr<NS::ChildProcess> waitingChild(std::chrono::hours limit) {
  pid_t child = ::fork();
  if (child == 0)
    for (;;)
      ::pause();
  auto process = std::make_shared<NS::ChildProcess>();
  process->setIdentifier(child);
  process->setDeadline(NS::ChildProcess::Clock::now() + limit);
  return process;
}

TEST(ChildProcess, isKilledInTimeAmongOthersThatMayRunForLonger) {
  auto longer = waitingChild(std::chrono::hours(1));
  auto overdue = waitingChild(std::chrono::hours(0));
  auto last = waitingChild(std::chrono::hours(2));
  NS::prepareToAdopt();
  NS::adopt({longer, overdue, last});
  overdue->waitUntilEnd();
  EXPECT_EQ(overdue->outcome()->status, SIGKILL);
  for (const auto &other : {longer, last}) {
    EXPECT_FALSE(other->outcome());
    other->kill();
    other->waitUntilEnd();
  }
}

TEST(ChildProcess, leavesTheReapingThreadAsleepAfterItsEnd) {
  auto child = std::make_shared<NS::ChildProcess>();
  child->setIdentifier(endedChild());
  NS::prepareToAdopt();
  NS::adopt({child});
  child->waitUntilEnd();
  for (const auto &thread : std::filesystem::directory_iterator("/proc/self/task"))
    if (int number = std::stoi(thread.path().filename()); number != ::gettid())
      while (std::filesystem::exists(thread.path()) && !kwtest::isAsleep(number))
        std::this_thread::yield();
}

TEST(ChildProcess, isReapedWithoutAnExitDescriptor) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  NS::prepareToAdopt();
  auto child = waitingChild(std::chrono::hours(1));
  kwtest::FewDescriptorsLeft scarcity;
  NS::adopt({child});
  ::kill(child->identifier(), SIGKILL);
  child->waitUntilEnd();
  EXPECT_TRUE(isReaped(child->identifier()));
}

// In a program run anew: other tests may have started the thread that reaps.
TEST(ChildProcess, isReapedByAThreadThatGetsNoMemory) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        kwtest::NoMemoryForNewThreads scarcity;
        NS::prepareToAdopt();
        auto child = waitingChild(std::chrono::hours(1));
        NS::adopt({child});
        ::kill(child->identifier(), SIGKILL);
        child->waitUntilEnd();
        ::_exit(isReaped(child->identifier()) ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(ChildProcess, isLetGoOfAfterItsEnd) {
  NS::prepareToAdopt();
  std::size_t before = kwtest::openDescriptorCount();
  auto child = waitingChild(std::chrono::hours(1));
  NS::adopt({child});
  child->kill();
  child->waitUntilEnd();
  while (kwtest::openDescriptorCount() > before || child.use_count() > 1)
    std::this_thread::yield();
}

} // namespace
