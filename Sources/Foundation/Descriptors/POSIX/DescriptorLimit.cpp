// The limit of descriptors: raised for this process, the former one for its
// children.
#include "Foundation/Descriptors/POSIX/DescriptorLimit.h"

#include "Foundation/Descriptors/DescriptorBudget.h"

#include <mutex>

namespace NS {
namespace {

std::mutex mutex;
std::optional<rlimit> former; // guarded by the mutex

} // namespace

void raiseDescriptorLimit() {
  std::lock_guard lock(mutex);
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max)
    return;
  rlimit raised{limit.rlim_max, limit.rlim_max};
  if (::setrlimit(RLIMIT_NOFILE, &raised) == 0)
    former = limit;
}

std::optional<rlimit> limitBeforeRaising() {
  std::lock_guard lock(mutex);
  return former;
}

} // namespace NS
