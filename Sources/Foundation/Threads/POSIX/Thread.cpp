// The current thread by the calls that all hosts share.
#include "Foundation/Threads/Thread.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <execinfo.h>
#include <memory>
#include <thread>

namespace NS {
namespace {

constexpr int deepestStack = 128;
// A longer sleep is practically endless; this one fits every clock.
constexpr double longestSleep = 1e9;

// The thread that enters main initialises static storage.
const std::thread::id mainThread = std::this_thread::get_id();

class CurrentThread final : public Thread {
public:
  void sleepForTimeInterval(double seconds) override {
    if (!(seconds > 0))
      return;
    using Clock = std::chrono::steady_clock;
    std::chrono::duration<double> wanted(std::fmin(seconds, longestSleep));
    auto end = Clock::now() + std::chrono::ceil<Clock::duration>(wanted);
    // Measured anew after each signal: the system rounds the remaining time up,
    // and a stream of signals would make the sleep endless.
    for (auto left = end - Clock::now(); left.count() > 0; left = end - Clock::now()) {
      auto whole = std::chrono::floor<std::chrono::seconds>(left);
      auto rest = std::chrono::ceil<std::chrono::nanoseconds>(left - whole);
      struct timespec interval = {static_cast<time_t>(whole.count()),
                                  static_cast<long>(rest.count())};
      static_cast<void>(::nanosleep(&interval, nullptr));
    }
  }

  bool isMainThread() override { return std::this_thread::get_id() == mainThread; }

  std::vector<std::string> callStackSymbols() override {
    void *frames[deepestStack];
    int count = ::backtrace(frames, deepestStack);
    std::unique_ptr<char *, decltype(&std::free)> lines(::backtrace_symbols(frames, count),
                                                        &std::free);
    std::vector<std::string> symbols;
    // The first frame is this function.
    for (int frame = 1; lines && frame < count; ++frame)
      symbols.emplace_back(lines.get()[frame]);
    return symbols;
  }
};

} // namespace

Thread &Thread::real() {
  return lastingInstance<CurrentThread>();
}

} // namespace NS
