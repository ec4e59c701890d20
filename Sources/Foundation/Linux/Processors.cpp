// Processors by the thread's own set of them, waits by its resource usage.
#include "Foundation/POSIX/Processors.h"

#include "Foundation/SharedInstance.h"

#include <sched.h>
#include <sys/resource.h>

namespace NS {
namespace {

class UsableProcessors final : public Processors {
public:
  unsigned usable() const override {
    cpu_set_t set;
    // Fails where there are more processors than the set has bits: no lack.
    if (::sched_getaffinity(0, sizeof set, &set) != 0)
      return CPU_SETSIZE;
    return static_cast<unsigned>(CPU_COUNT(&set));
  }
};

SharedInstance<Processors> &instance() {
  static UsableProcessors real;
  static SharedInstance<Processors> shared(real);
  return shared;
}

} // namespace

Processors &Processors::shared() {
  return instance().get();
}

Processors *Processors::exchangeShared(Processors *replacement) {
  return instance().exchange(replacement);
}

std::uint64_t waitsOfThisThread() {
  rusage usage;
  if (::getrusage(RUSAGE_THREAD, &usage) != 0)
    return 0;
  return static_cast<std::uint64_t>(usage.ru_nvcsw);
}

} // namespace NS
