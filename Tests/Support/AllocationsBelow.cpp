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

void *operator new(std::size_t size) {
  void *memory = size < kwtest::limit ? std::malloc(size) : nullptr;
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
