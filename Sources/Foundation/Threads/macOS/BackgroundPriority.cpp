// The priority of a single thread, which the host applies to processor and disk.
#include "Foundation/Threads/Internal/BackgroundPriority.h"

#include <sys/resource.h>

namespace NS {

void takeBackgroundPriority() {
  static_cast<void>(::setpriority(PRIO_DARWIN_THREAD, 0, PRIO_DARWIN_BG));
}

} // namespace NS
