// Operations of the current thread. Thread-safe.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <string>
#include <vector>

namespace NS {

class Thread : public SharedInstance<Thread> {
public:
  virtual ~Thread() = default;
  static Thread &real();

  // Blocks for so many seconds; a signal does not cut the sleep short. Does not
  // block for NaN or a negative number.
  virtual void sleepForTimeInterval(double seconds) = 0;
  // Tells whether this is the thread that entered main.
  virtual bool isMainThread() = 0;
  // The current thread's stack, innermost frame first, a line each.
  virtual std::vector<std::string> callStackSymbols() = 0;
};

} // namespace NS
