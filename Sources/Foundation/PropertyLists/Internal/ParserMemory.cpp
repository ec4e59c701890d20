// Counts each block with a header before it, which knows its size and whose it is.
#include "Foundation/PropertyLists/Internal/ParserMemory.h"

#include <cstdlib>
#include <new>

namespace NS {

struct alignas(std::max_align_t) ParserMemory::Header {
  ParserMemory *owner;
  std::size_t size; // with this header
};

// Like realloc: null leaves the former block as it was.
void *ParserMemory::resize(ParserMemory &owner, Header *former, std::size_t size) {
  std::size_t available = owner.left_ + (former ? former->size : 0);
  if (available < sizeof(Header) || size > available - sizeof(Header))
    return nullptr;
  size += sizeof(Header);
  void *memory = std::realloc(static_cast<void *>(former), size);
  if (!memory) {
    owner.hasRunOut_ = true;
    return nullptr;
  }
  owner.left_ = available - size;
  return new (memory) Header{&owner, size} + 1;
}

void *ParserMemory::allocate(std::size_t size) {
  return resize(*current_, nullptr, size);
}

void *ParserMemory::reallocate(void *block, std::size_t size) {
  if (!block)
    return allocate(size);
  Header *header = static_cast<Header *>(block) - 1;
  return resize(*header->owner, header, size);
}

void ParserMemory::release(void *block) {
  if (!block)
    return;
  Header *header = static_cast<Header *>(block) - 1;
  header->owner->left_ += header->size;
  std::free(header);
}

} // namespace NS
