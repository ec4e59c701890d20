// Processors by the thread's own set of them, waits by its resource usage.
#include "Foundation/Threads/Internal/Processors.h"

#include <sched.h>
#include <sys/resource.h>

namespace NS {

unsigned host::usableProcessors() {
  cpu_set_t set;
  // It fails when there are more processors than the set has bits.
  if (::sched_getaffinity(0, sizeof set, &set) != 0)
    return CPU_SETSIZE;
  return static_cast<unsigned>(CPU_COUNT(&set));
}

std::uint64_t waitsOfThisThread() {
  rusage usage;
  if (::getrusage(RUSAGE_THREAD, &usage) != 0)
    return 0;
  return static_cast<std::uint64_t>(usage.ru_nvcsw);
}

} // namespace NS
