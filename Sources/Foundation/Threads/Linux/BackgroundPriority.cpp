// The priorities of a single thread, processor and disk.
#include "Foundation/Threads/Internal/BackgroundPriority.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace NS {
namespace {

constexpr int lowestProcessorPriority = 19;
// The C library has no names for these.
constexpr int onlyThisThread = 1;
constexpr int whenIdle = 3 << 13;

} // namespace

void takeBackgroundPriority() {
  auto thread = static_cast<id_t>(::gettid());
  static_cast<void>(::setpriority(PRIO_PROCESS, thread, lowestProcessorPriority));
  static_cast<void>(::syscall(SYS_ioprio_set, onlyThisThread, 0, whenIdle));
}

} // namespace NS
