// The host's clocks through the standard library.
#include "Foundation/Base/Clock.h"

namespace NS {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

class HostClock final : public Clock {
public:
  MonotonicTime monotonicTime() override {
    return {std::chrono::duration_cast<nanoseconds>(steady_clock::now().time_since_epoch())};
  }
  WallTime wallTime() override {
    return {std::chrono::duration_cast<nanoseconds>(system_clock::now().time_since_epoch())};
  }

  void wait(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
            MonotonicTime deadline) override {
    auto since = std::chrono::duration_cast<steady_clock::duration>(deadline.sinceStart);
    condition.wait_until(lock, steady_clock::time_point(since));
  }
  void wait(std::condition_variable &condition, std::unique_lock<std::mutex> &lock,
            WallTime deadline) override {
    auto since = std::chrono::duration_cast<system_clock::duration>(deadline.since1970);
    condition.wait_until(lock, system_clock::time_point(since));
  }
};

} // namespace

Clock &Clock::real() {
  return lastingInstance<HostClock>();
}

} // namespace NS
