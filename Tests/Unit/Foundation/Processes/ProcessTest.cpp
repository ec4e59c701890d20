// How a process ends, shown by processes made for it.
#include "Foundation/Processes/Process.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// The wait status of a child that runs the function.
int statusOfChild(void (*function)()) {
  pid_t child = ::fork();
  if (child == 0) {
    function();
    ::_exit(99);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return status;
}

void expectExit(int status, int code) {
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), code);
}

TEST(Process, exitsWithTheStatusItIsGiven) {
  expectExit(statusOfChild([] { NS::Process::shared().exit(7); }), 7);
}

TEST(Process, callsTheHooksBeforeItExits) {
  expectExit(statusOfChild([] {
               NS::Process::shared().beforeExit([] { ::_exit(42); });
               NS::Process::shared().exit(0);
             }),
             42);
}

TEST(Process, exitsWhileAnotherThreadIsBusy) {
  expectExit(statusOfChild([] {
               std::thread([] {
                 while (true)
                   ::pause();
               }).detach();
               NS::Process::shared().exit(0);
             }),
             0);
}

TEST(Process, endsWithSuccessOnTheSignalsOfASupervisor) {
  expectExit(statusOfChild([] {
               NS::Process::shared().installSignalDispositions();
               ::raise(SIGTERM);
             }),
             0);
  expectExit(statusOfChild([] {
               NS::Process::shared().installSignalDispositions();
               ::raise(SIGINT);
             }),
             0);
}

TEST(Process, survivesWritingToAPipeWithoutAReader) {
  expectExit(statusOfChild([] {
               NS::Process::shared().installSignalDispositions();
               int ends[2];
               if (::pipe(ends) != 0)
                 ::_exit(1);
               ::close(ends[0]);
               ::_exit(::write(ends[1], "x", 1) == -1 && errno == EPIPE ? 5 : 6);
             }),
             5);
}

TEST(Process, forgetsTheSignalsThatItsParentIgnoredOrBlocked) {
  expectExit(statusOfChild([] {
               std::signal(SIGCHLD, SIG_IGN);
               std::signal(SIGHUP, SIG_IGN);
               std::signal(SIGRTMAX, SIG_IGN);
               sigset_t all, left;
               sigfillset(&all);
               ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
               NS::Process::shared().installSignalDispositions();
               ::pthread_sigmask(SIG_SETMASK, nullptr, &left);
               for (int signal : {SIGCHLD, SIGHUP, SIGTERM, SIGUSR1, SIGRTMAX})
                 if (sigismember(&left, signal) != 0)
                   ::_exit(1);
               for (int signal : {SIGCHLD, SIGHUP, SIGRTMAX})
                 if (std::signal(signal, SIG_DFL) != SIG_DFL)
                   ::_exit(2);
               ::_exit(5);
             }),
             5);
}

TEST(Process, keepsTheHandlersThatItsOwnCodeInstalled) {
  expectExit(statusOfChild([] {
               std::signal(SIGUSR1, [](int) { ::_exit(5); });
               NS::Process::shared().installSignalDispositions();
               ::raise(SIGUSR1);
             }),
             5);
}

// As a supervisor may do that ignores the ends of its children.
TEST(Process, learnsTheStatusOfAProgramThoughItsParentIgnoredTheEndsOfChildren) {
  expectExit(statusOfChild([] {
               std::signal(SIGCHLD, SIG_IGN);
               NS::Process::shared().installSignalDispositions();
               int status = statusOfChild([] { ::_exit(7); });
               ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
             }),
             7);
}

} // namespace
