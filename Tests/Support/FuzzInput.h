// Functions that all fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace kwtest {

inline std::string_view fuzzText(const std::uint8_t *data, std::size_t size) {
  return size == 0 ? std::string_view()
                   : std::string_view(reinterpret_cast<const char *>(data), size);
}

// The first line and the rest after it, which is empty for one line.
inline std::pair<std::string_view, std::string_view> firstLineAndRest(std::string_view text) {
  std::size_t end = text.find('\n');
  if (end == std::string_view::npos)
    return {text, {}};
  return {text.substr(0, end), text.substr(end + 1)};
}

// Ends the process when a promise is broken, in every build type.
inline void require(bool holds, const char *promise) {
  if (holds)
    return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

} // namespace kwtest
