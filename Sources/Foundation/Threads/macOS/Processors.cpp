// Processors by their number, waits by the time that a thread was not running.
#include "Foundation/Threads/Internal/Processors.h"

#include <ctime>
#include <unistd.h>

namespace NS {
namespace {

std::uint64_t microseconds(clockid_t clock) {
  timespec time{};
  static_cast<void>(::clock_gettime(clock, &time));
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000u +
         static_cast<std::uint64_t>(time.tv_nsec) / 1000u;
}

} // namespace

unsigned host::usableProcessors() {
  long count = ::sysconf(_SC_NPROCESSORS_ONLN);
  return count < 1 ? 1 : static_cast<unsigned>(count);
}

// The host counts no waits of a single thread, so this counts its time without a
// processor, in units of the shortest wait for a device.
std::uint64_t waitsOfThisThread() {
  constexpr std::uint64_t shortestWait = 50; // microseconds
  std::uint64_t wall = microseconds(CLOCK_MONOTONIC);
  std::uint64_t used = microseconds(CLOCK_THREAD_CPUTIME_ID);
  return wall > used ? (wall - used) / shortestWait : 0;
}

} // namespace NS
