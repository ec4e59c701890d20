// Linux has no getbsize, so this file reads the variable itself on every host.
#include "Foundation/Base/Environment.h"

#include "Foundation/Base/Internal/EnvironmentLock.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <shared_mutex>

namespace NS {
namespace {

constexpr std::int64_t smallestBlock = 512;
constexpr std::int64_t largestBlock = std::int64_t{1} << 30;

// 0 for an unknown suffix.
std::int64_t multiplier(const char *suffix) {
  if (suffix[0] == '\0')
    return 1;
  if (suffix[1] != '\0')
    return 0;
  switch (suffix[0]) {
  case 'K':
  case 'k':
    return std::int64_t{1} << 10;
  case 'M':
  case 'm':
    return std::int64_t{1} << 20;
  case 'G':
  case 'g':
    return std::int64_t{1} << 30;
  default:
    return 0;
  }
}

} // namespace

std::int64_t getbsize() {
  std::shared_lock lock(environmentLock());
  const char *text = std::getenv("BLOCKSIZE");
  if (!text || *text == '\0')
    return smallestBlock;
  char *suffix = nullptr;
  std::int64_t count = std::strtoll(text, &suffix, 10);
  std::int64_t unit = multiplier(suffix);
  if (count < 0 || unit == 0)
    return smallestBlock;
  // A suffix alone stands for one of the unit.
  if (count == 0)
    count = 1;
  if (count > largestBlock / unit)
    return largestBlock;
  return std::max(count * unit, smallestBlock);
}

} // namespace NS
