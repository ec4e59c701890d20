// The limit of descriptors: raised for this process, the former one for its
// children.
#include "Foundation/Descriptors/POSIX/DescriptorLimit.h"

#include "Foundation/Descriptors/DescriptorBudget.h"

#include <mutex>

namespace NS {
namespace {

std::mutex mutex;
std::optional<rlimit> former; // guarded by the mutex

// The soft limit where the hard one is none, as it often is on macOS: the call
// there takes only a number, and every version takes this one (OPEN_MAX).
constexpr rlim_t softWithoutHard = 10240;

} // namespace

void raiseDescriptorLimit() {
  std::lock_guard lock(mutex);
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
    return;
  rlimit raised = limit;
  raised.rlim_cur = limit.rlim_max == RLIM_INFINITY ? softWithoutHard : limit.rlim_max;
  if (raised.rlim_cur <= limit.rlim_cur)
    return;
  if (::setrlimit(RLIMIT_NOFILE, &raised) == 0)
    former = limit;
}

std::optional<rlimit> limitBeforeRaising() {
  std::lock_guard lock(mutex);
  return former;
}

} // namespace NS
