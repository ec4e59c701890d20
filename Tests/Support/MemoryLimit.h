// Lets this process run out of memory early.
#pragma once

#include <cstddef>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace kwtest {

// While one exists, the process may take at most so many bytes more than it had.
class MemoryLimit {
public:
  explicit MemoryLimit(std::size_t more) {
    ::getrlimit(RLIMIT_AS, &former_);
    rlimit limit{held() + more, former_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_AS, &limit), 0);
  }
  ~MemoryLimit() { ::setrlimit(RLIMIT_AS, &former_); }
  MemoryLimit(const MemoryLimit &) = delete;
  MemoryLimit &operator=(const MemoryLimit &) = delete;

private:
  static rlim_t held() {
    std::size_t pages = 0;
    std::FILE *file = std::fopen("/proc/self/statm", "r");
    EXPECT_TRUE(file && std::fscanf(file, "%zu", &pages) == 1);
    if (file)
      std::fclose(file);
    return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  }

  rlimit former_{};
};

} // namespace kwtest
