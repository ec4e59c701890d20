// The language's operators for memory, with limits for each thread.
#include "Support/Allocations.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace kwtest {
namespace {

std::atomic<std::size_t> limitOfNewThreads{SIZE_MAX};
thread_local std::size_t limit = limitOfNewThreads;
thread_local std::optional<int> left;

bool mayAllocate(std::size_t size) {
  if (size >= limit)
    return false;
  if (!left || (*left)-- > 0)
    return true;
  left.reset();
  return false;
}

} // namespace

AllocationsBelow::AllocationsBelow(std::size_t size) {
  limit = size;
}

AllocationsBelow::~AllocationsBelow() {
  limit = SIZE_MAX;
}

NoMemoryForNewThreads::NoMemoryForNewThreads() {
  limitOfNewThreads = 0;
}

NoMemoryForNewThreads::~NoMemoryForNewThreads() {
  limitOfNewThreads = SIZE_MAX;
}

std::optional<int> &allocationsLeft() {
  return left;
}

} // namespace kwtest

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  return kwtest::mayAllocate(size) ? std::malloc(size > 0 ? size : 1) : nullptr;
}
void *operator new(std::size_t size) {
  void *memory = operator new(size, std::nothrow);
  if (!memory)
    throw std::bad_alloc();
  return memory;
}
void operator delete(void *memory) noexcept {
  std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}
