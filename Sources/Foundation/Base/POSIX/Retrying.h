// Repeats system calls that a signal may interrupt, or that may do a part of
// their work. Internal to Foundation.
#pragma once

#include <cerrno>
#include <cstddef>
#include <sys/types.h>
#include <unistd.h>

namespace NS {

// Repeats the call while a signal interrupts it. Returns its result, with errno
// as the last call left it.
template <typename Call> auto retrying(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

// Writes all bytes into an open file, from this position on. Returns 0 or an
// errno value.
inline int writeFully(int file, const void *bytes, std::size_t size, off_t at) {
  const auto *next = static_cast<const char *>(bytes);
  while (size > 0) {
    ssize_t count = retrying([&] { return ::pwrite(file, next, size, at); });
    if (count <= 0)
      return count < 0 ? errno : EIO;
    next += count;
    at += count;
    size -= static_cast<std::size_t>(count);
  }
  return 0;
}

} // namespace NS
