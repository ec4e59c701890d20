// The language's operators for memory, with a limit for each thread.
#include "Support/AllocationsBelow.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace kwtest {
namespace {

thread_local std::size_t limit = SIZE_MAX;

} // namespace

AllocationsBelow::AllocationsBelow(std::size_t size) {
  limit = size;
}

AllocationsBelow::~AllocationsBelow() {
  limit = SIZE_MAX;
}

} // namespace kwtest

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  return size < kwtest::limit ? std::malloc(size > 0 ? size : 1) : nullptr;
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
