// What a call says when this process or its host has run out of something. It
// tells nothing of the item that was asked about, and may pass.
#pragma once

#include <cerrno>

namespace NS {

inline bool isExhaustion(int errnum) {
  return errnum == EMFILE || errnum == ENFILE || errnum == ENOMEM;
}

// How often one operation tries again.
class Patience {
public:
  // Waits a while, longer each time, ten seconds in all. False, at once, when
  // that was enough, when the current request was cancelled, and for an errno
  // value that is no exhaustion.
  bool outlasts(int errnum);

private:
  unsigned waits_ = 0;
};

} // namespace NS
