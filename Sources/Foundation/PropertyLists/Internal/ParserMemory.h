// The memory of a parser whose input may be hostile: counted, and bounded.
#pragma once

#include <cstddef>

namespace NS {

// Serves the parser that the thread creates and uses while this object exists. The
// parser must be freed before it. The functions are those that a parser in C
// takes; they return null beyond the bound, and when the process has no memory.
class ParserMemory {
public:
  explicit ParserMemory(std::size_t bound) : left_(bound) { current_ = this; }
  ~ParserMemory() { current_ = former_; }
  ParserMemory(const ParserMemory &) = delete;
  ParserMemory &operator=(const ParserMemory &) = delete;

  static void *allocate(std::size_t size);
  static void *reallocate(void *block, std::size_t size);
  static void release(void *block);

  // Whether the process had no memory for a block within the bound.
  bool hasRunOut() const { return hasRunOut_; }

private:
  struct Header;

  static void *resize(ParserMemory &owner, Header *former, std::size_t size);

  // A parser does not name itself when it asks for a block.
  inline static thread_local ParserMemory *current_ = nullptr;

  ParserMemory *former_ = current_;
  std::size_t left_; // bytes
  bool hasRunOut_ = false;
};

} // namespace NS
