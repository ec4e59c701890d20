// Lets this process run out of memory early.
#pragma once

#include <cstddef>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kwtest {

// While one exists, the process may take at most so many bytes more than it had.
// It first takes the memory that earlier tests gave back to the allocator, which
// would come on top.
class MemoryLimit {
public:
  explicit MemoryLimit(std::size_t more) {
    ::getrlimit(RLIMIT_AS, &former_);
    freeMemory_.reserve(10'000);
    rlim_t now = held();
    limitTo(now);
    for (std::size_t size = 16u << 20; size >= 16u << 10; size /= 2)
      while (freeMemory_.size() < freeMemory_.capacity() && takeFree(size)) {
      }
    limitTo(now + more);
  }
  ~MemoryLimit() { limitTo(former_.rlim_cur); }
  MemoryLimit(const MemoryLimit &) = delete;
  MemoryLimit &operator=(const MemoryLimit &) = delete;

private:
  void limitTo(rlim_t bytes) {
    rlimit limit{bytes, former_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_AS, &limit), 0);
  }
  bool takeFree(std::size_t size) {
    std::unique_ptr<char[]> block(new (std::nothrow) char[size]);
    if (!block)
      return false;
    freeMemory_.push_back(std::move(block));
    return true;
  }
  static rlim_t held() {
    std::size_t pages = 0;
    std::FILE *file = std::fopen("/proc/self/statm", "r");
    EXPECT_TRUE(file && std::fscanf(file, "%zu", &pages) == 1);
    if (file)
      std::fclose(file);
    return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  }

  rlimit former_{};
  std::vector<std::unique_ptr<char[]>> freeMemory_;
};

} // namespace kwtest
