// The language's operators for memory, with limits for each thread. They fill each
// piece when the program gets it and when it releases it, so that code which reads
// memory that it has not written, or no longer owns, fails in its test.
#include "Support/Allocations.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>

namespace kwtest {
namespace {

std::atomic<std::size_t> limitOfNewThreads{SIZE_MAX};
thread_local std::size_t limit = limitOfNewThreads;
thread_local std::optional<int> left;
std::atomic<std::size_t> pieces{0};

bool mayAllocate(std::size_t size) {
  if (size >= limit)
    return false;
  if (!left || (*left)-- > 0)
    return true;
  left.reset();
  return false;
}

// Through a volatile pointer: a compiler may leave out a change that precedes a
// release.
void *(*volatile const set)(void *, int, std::size_t) = std::memset;

// Not all of a large piece: the pages that a program does not touch take no memory.
void fill(void *memory) {
  constexpr int pattern = 0xa5;
  constexpr std::size_t most = 16 * 1024;
  set(memory, pattern, std::min(::malloc_usable_size(memory), most));
}

void *allocate(std::size_t size) {
  void *memory = mayAllocate(size) ? std::malloc(size > 0 ? size : 1) : nullptr;
  if (!memory)
    return nullptr;
  ++pieces;
  fill(memory);
  return memory;
}

void release(void *memory) {
  if (!memory)
    return;
  --pieces;
  fill(memory);
  std::free(memory);
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

std::size_t piecesOfMemory() {
  return pieces;
}

} // namespace kwtest

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  return kwtest::allocate(size);
}
void *operator new(std::size_t size) {
  void *memory = operator new(size, std::nothrow);
  if (!memory)
    throw std::bad_alloc();
  return memory;
}
void operator delete(void *memory) noexcept {
  kwtest::release(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
  kwtest::release(memory);
}
