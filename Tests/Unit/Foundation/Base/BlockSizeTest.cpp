// The reading of BLOCKSIZE as a table.
#include "Foundation/Base/Environment.h"

#include <gtest/gtest.h>

#include <stdlib.h>

namespace {

TEST(BlockSize, isReadAsGetbsizeReadsIt) {
  struct Row {
    const char *text;
    std::int64_t size;
  };
  for (auto [text, size] :
       {Row{"512", 512}, Row{"", 512}, Row{"1024", 1024}, Row{"1K", 1024}, Row{"k", 1024},
        Row{"4k", 4096}, Row{"M", 1 << 20}, Row{"3m", 3 << 20}, Row{"1G", 1 << 30},
        Row{"2g", 1 << 30}, Row{"0", 512}, Row{"1", 512}, Row{"-5", 512}, Row{"x", 512},
        Row{"1KB", 512}, Row{"2000KB", 512}, Row{"2000x", 512},
        Row{"99999999999999999999", 1 << 30}, Row{"600", 600}}) {
    ::setenv("BLOCKSIZE", text, 1);
    EXPECT_EQ(NS::getbsize(), size) << text;
  }
  ::unsetenv("BLOCKSIZE");
  EXPECT_EQ(NS::getbsize(), 512);
}

} // namespace
