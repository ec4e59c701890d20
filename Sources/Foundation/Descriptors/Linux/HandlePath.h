// A path to the item of an open descriptor, for calls that take only paths. It
// also leads to an item that a descriptor refers to without having opened it.
#pragma once

#include <string>

namespace NS {

inline std::string handlePath(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

} // namespace NS
