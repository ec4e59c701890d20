// Waits until other requests release an exhausted resource.
#include "Foundation/Walking/Exhaustion.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Threads/Thread.h"

namespace NS {
namespace {

constexpr double firstWait = 0.01; // seconds, doubled each time
constexpr unsigned mostWaits = 10;

} // namespace

bool Patience::waitOut(int errnum) {
  if (!isExhaustion(errnum) || waits_ == mostWaits || Progress::current().isCancelled())
    return false;
  Thread::shared().sleepForTimeInterval(firstWait * static_cast<double>(1u << waits_++));
  return true;
}

} // namespace NS
