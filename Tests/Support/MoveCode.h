// The outcome of a move as one number.
#pragma once

#include "Foundation/Trees/FileManager.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kwtest {

// Moves by the real file manager. Returns 0, the code of the error, or -1 for a
// failure without one.
inline std::int64_t moveCode(const std::string &from, const std::string &to) {
  std::optional<NS::Error> error;
  if (NS::FileManager::defaultManager().moveItemAtPath(from, to, &error))
    return 0;
  return error ? error->code() : -1;
}

} // namespace kwtest
