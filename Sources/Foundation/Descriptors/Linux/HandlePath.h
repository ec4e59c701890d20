// A path to the item of a descriptor, for calls that take only paths. It works
// for a descriptor by O_PATH too, which refers to an item without opening it.
// Needs /proc.
#pragma once

#include <string>

namespace NS {

inline std::string handlePath(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

} // namespace NS
