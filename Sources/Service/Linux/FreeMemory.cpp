// Sets the C library's allocator to keep less memory.
#include "Service/Linux/FreeMemory.h"

#include <algorithm>
#include <malloc.h>
#include <thread>

namespace NS {
namespace {

constexpr std::chrono::milliseconds delay{1000};

// In bytes. Larger than the buffers that requests allocate and free again and
// again. Fixed, because the allocator's own value follows the largest block
// that was ever freed, and clients choose its size.
constexpr int largeBlock = 1 << 20;
constexpr int keptAtTheEnd = 256 << 10;

// The number of heaps that the threads share. Most threads wait, and every heap
// keeps pieces.
int heaps() {
  return 2 * static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 2U, 64U));
}

} // namespace

FreeMemory::FreeMemory(BusThread &connection) : connection_(connection) {
  static_cast<void>(::mallopt(M_MMAP_THRESHOLD, largeBlock));
  static_cast<void>(::mallopt(M_TRIM_THRESHOLD, keptAtTheEnd));
  static_cast<void>(::mallopt(M_ARENA_MAX, heaps()));
}

void FreeMemory::giveBackSoon() {
  if (isAboutTo_)
    return;
  isAboutTo_ = true;
  connection_.callAfter(delay, [this] {
    isAboutTo_ = false;
    static_cast<void>(::malloc_trim(0));
  });
}

} // namespace NS
