// Waiting on descriptors.
#include "Foundation/Descriptors/Internal/Descriptors.h"

#include <array>
#include <cerrno>
#include <poll.h>

namespace NS::descriptors {

Readiness waitForReading(int first, int second, int timeout) {
  // poll passes over a negative descriptor.
  std::array waits{pollfd{first, POLLIN, 0}, pollfd{second, POLLIN, 0}};
  while (::poll(waits.data(), static_cast<nfds_t>(waits.size()), timeout) < 0)
    if (errno != EINTR && errno != EAGAIN)
      return {.first = true, .second = true};
  return {.first = waits[0].revents != 0,
          .firstHasData = (waits[0].revents & POLLIN) != 0,
          .second = waits[1].revents != 0};
}

} // namespace NS::descriptors
