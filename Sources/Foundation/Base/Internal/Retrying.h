// Repeats system calls that a signal may interrupt. Internal to Foundation.
#pragma once

#include <cerrno>

namespace NS {

// Repeats the call while a signal interrupts it. Returns its result, with errno
// as the last call left it.
template <typename Call> auto retrying(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

} // namespace NS
