// One child process, apart from the thread that reaps all.
#include "Foundation/Processes/POSIX/ChildProcess.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
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

} // namespace
