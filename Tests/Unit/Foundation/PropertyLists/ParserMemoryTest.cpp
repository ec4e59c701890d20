// The count and the bound of a parser's memory.
#include "Foundation/PropertyLists/Internal/ParserMemory.h"

#include "Support/MemoryLimit.h"
#include "Support/Sanitizers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <thread>

namespace {

using NS::ParserMemory;

TEST(ParserMemory, servesAlignedBlocksThatKeepTheirContentsAsTheyGrow) {
  ParserMemory memory(1000);
  void *block = ParserMemory::allocate(10);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u);
  std::memcpy(block, "123456789", 10);
  block = ParserMemory::reallocate(block, 500);
  ASSERT_NE(block, nullptr);
  EXPECT_STREQ(static_cast<const char *>(block), "123456789");
  ParserMemory::release(block);
  ParserMemory::release(nullptr);
}

TEST(ParserMemory, refusesABlockBeyondItsBound) {
  ParserMemory memory(1000);
  void *block = ParserMemory::allocate(600);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(ParserMemory::allocate(600), nullptr);
  EXPECT_EQ(ParserMemory::allocate(std::numeric_limits<std::size_t>::max()), nullptr);
  EXPECT_EQ(ParserMemory::reallocate(block, 1001), nullptr);
  std::memset(block, 1, 600); // still there
  ParserMemory::release(block);
  EXPECT_FALSE(memory.hasRunOut());
}

TEST(ParserMemory, countsReleasedBlocksAndTheFormerSizeOfABlock) {
  ParserMemory memory(1000);
  for (int count = 0; count < 10; ++count) {
    void *block = ParserMemory::reallocate(nullptr, 300);
    for (std::size_t size : {900u, 100u, 900u}) {
      block = ParserMemory::reallocate(block, size);
      ASSERT_NE(block, nullptr) << count;
    }
    ParserMemory::release(block);
  }
}

TEST(ParserMemory, keepsItsBoundHoweverManyBlocksWereReleased) {
  ParserMemory memory(1000);
  for (int count = 0; count < 100; ++count) {
    void *block = ParserMemory::allocate(10);
    ASSERT_NE(block, nullptr);
    ParserMemory::release(ParserMemory::reallocate(block, 20));
  }
  EXPECT_EQ(ParserMemory::allocate(1000), nullptr);
}

// The size of the largest block that is left.
std::size_t largestBlock() {
  std::size_t size = 1000;
  void *block = ParserMemory::allocate(size);
  while (!block && size > 0)
    block = ParserMemory::allocate(--size);
  ParserMemory::release(block);
  return size;
}

TEST(ParserMemory, servesItsBoundToTheLastByte) {
  ParserMemory memory(1000);
  std::size_t largest = largestBlock(), header = 1000 - largest;
  void *block = ParserMemory::allocate(100);
  EXPECT_EQ(largestBlock(), largest - 100 - header);
  block = ParserMemory::reallocate(block, largest - header);
  void *empty = ParserMemory::allocate(0);
  EXPECT_NE(empty, nullptr);
  EXPECT_EQ(ParserMemory::allocate(0), nullptr);
  ParserMemory::release(empty);
  ParserMemory::release(block);
}

TEST(ParserMemory, givesReleasedBlocksBackToTheProcess) {
  if (kwtest::addsMemory)
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit in the limit";
  ParserMemory memory(1u << 30);
  kwtest::MemoryLimit limit(64u << 20);
  for (int count = 0; count < 20; ++count) {
    void *block = ParserMemory::allocate(16u << 20);
    ASSERT_NE(block, nullptr) << count;
    ParserMemory::release(block);
  }
}

TEST(ParserMemory, tellsALackOfMemoryFromItsBound) {
  if (kwtest::addsMemory)
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit in the limit";
  ParserMemory memory(1u << 30);
  {
    kwtest::MemoryLimit limit(1u << 20);
    EXPECT_EQ(ParserMemory::allocate(64u << 20), nullptr);
  }
  EXPECT_TRUE(memory.hasRunOut());
}

TEST(ParserMemory, isOneForEachThreadAndForEachParserWithinAnother) {
  ParserMemory outer(1000);
  void *block = ParserMemory::allocate(500);
  {
    ParserMemory inner(5000);
    void *other = ParserMemory::allocate(4000);
    EXPECT_NE(other, nullptr);
    EXPECT_EQ(ParserMemory::reallocate(block, 2000), nullptr) << "the block is the outer's";
    ParserMemory::release(other);
  }
  EXPECT_EQ(ParserMemory::allocate(4000), nullptr);
  std::thread([] {
    ParserMemory memory(5000);
    void *other = ParserMemory::allocate(4000);
    EXPECT_NE(other, nullptr);
    ParserMemory::release(other);
  }).join();
  ParserMemory::release(block);
}

} // namespace
