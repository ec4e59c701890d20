// Refuses a thread large pieces of memory. A program of tests that uses it has
// AllocationsBelow.cpp among its sources.
#pragma once

#include <cstddef>

namespace kwtest {

// While one exists, its thread gets only pieces smaller than so many bytes from
// the language's own operator.
class AllocationsBelow {
public:
  explicit AllocationsBelow(std::size_t size);
  ~AllocationsBelow();
  AllocationsBelow(const AllocationsBelow &) = delete;
  AllocationsBelow &operator=(const AllocationsBelow &) = delete;
};

} // namespace kwtest
