// Refuses a thread memory. A program of tests that uses it has Allocations.cpp
// among its sources, which replaces the language's own operators.
#pragma once

#include <cstddef>
#include <optional>

namespace kwtest {

// While one exists, its thread gets only pieces smaller than so many bytes.
class AllocationsBelow {
public:
  explicit AllocationsBelow(std::size_t size);
  ~AllocationsBelow();
  AllocationsBelow(const AllocationsBelow &) = delete;
  AllocationsBelow &operator=(const AllocationsBelow &) = delete;
};

// Threads whose first allocation comes while one exists get no memory, until they
// end.
class NoMemoryForNewThreads {
public:
  NoMemoryForNewThreads();
  ~NoMemoryForNewThreads();
  NoMemoryForNewThreads(const NoMemoryForNewThreads &) = delete;
  NoMemoryForNewThreads &operator=(const NoMemoryForNewThreads &) = delete;
};

// How many allocations of this thread succeed before one fails; none fails while
// it is empty, as it is after that one.
std::optional<int> &allocationsLeft();

// How many pieces of memory the program holds, on all threads.
std::size_t piecesOfMemory();

} // namespace kwtest
