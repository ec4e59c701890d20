// Calls of the system that a signal may interrupt. Internal to Foundation.
#pragma once

#include <cerrno>

namespace NS {

// Makes the call again for as long as a signal interrupts it; its result, with
// errno as the last call left it.
template <typename Call> auto retrying(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

} // namespace NS
