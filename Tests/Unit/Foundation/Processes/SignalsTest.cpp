// Signals on a thread of their own. Each test has a process for itself, in which
// no other thread could take them.
#include "Foundation/Processes/Signals.h"

#include "Support/ForkedChild.h"
#include "Support/Signal.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using kwtest::inForkedChild;
using kwtest::Signal;
using NS::SignalWatch;

constexpr std::chrono::seconds patience{10};

auto threadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(SignalWatch, callsTheHandlerOnAnotherThreadForEachOfItsSignals) {
  EXPECT_EQ(inForkedChild([]() -> std::string {
              Signal first, second;
              std::thread::id thread;
              SignalWatch watch({SIGUSR1, SIGUSR2}, [&](int signal) {
                thread = std::this_thread::get_id();
                (signal == SIGUSR1 ? first : second).raise();
              });
              ::kill(::getpid(), SIGUSR1);
              if (!first.isRaisedWithin(patience))
                return "the first signal was lost";
              ::kill(::getpid(), SIGUSR2);
              if (!second.isRaisedWithin(patience))
                return "the second signal was lost";
              return thread != std::this_thread::get_id() ? "" : "on the same thread";
            }),
            "");
}

TEST(SignalWatch, leavesIgnoredSignalsIgnored) {
  EXPECT_EQ(inForkedChild([]() -> std::string {
              std::signal(SIGUSR1, SIG_IGN);
              Signal other;
              bool wasCalled = false;
              SignalWatch watch({SIGUSR1, SIGUSR2}, [&](int signal) {
                wasCalled = wasCalled || signal == SIGUSR1;
                if (signal == SIGUSR2)
                  other.raise();
              });
              ::kill(::getpid(), SIGUSR1);
              ::kill(::getpid(), SIGUSR2);
              if (!other.isRaisedWithin(patience))
                return "the other signal was lost";
              return wasCalled ? "the ignored signal was reported" : "";
            }),
            "");
}

// Nothing can call its handler then.
TEST(SignalWatch, ofIgnoredSignalsAloneHasNoThreadAndBlocksNoSignal) {
  EXPECT_EQ(inForkedChild([]() -> std::string {
              std::signal(SIGUSR1, SIG_IGN);
              auto threads = threadCount();
              SignalWatch watch({SIGUSR1}, [](int) {});
              sigset_t blocked;
              ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
              if (sigismember(&blocked, SIGUSR1) != 0)
                return "the signal is blocked";
              return threadCount() == threads ? "" : "there is a thread";
            }),
            "");
}

TEST(SignalWatch, endsWithoutACallOfTheHandler) {
  EXPECT_EQ(inForkedChild([]() -> std::string {
              int calls = 0;
              {
                SignalWatch watch({SIGUSR1, SIGUSR2}, [&](int) { ++calls; });
              }
              return calls == 0 ? "" : "called";
            }),
            "");
}

} // namespace
