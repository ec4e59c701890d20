// Errors of a call when this process or its host has run out of a resource.
// They say nothing about the item in question, and may pass.
#pragma once

#include <cerrno>

namespace NS {

inline bool isExhaustion(int errnum) {
  return errnum == EMFILE || errnum == ENFILE || errnum == ENOMEM;
}

// Limits the retries of one operation.
class Patience {
public:
  // Blocks for a while, longer each time, ten seconds in all, and returns true.
  // Returns false at once when that time is used up, when the current request was
  // cancelled, and for an errno value of another cause.
  bool waitOut(int errnum);

private:
  unsigned waits_ = 0;
};

} // namespace NS
