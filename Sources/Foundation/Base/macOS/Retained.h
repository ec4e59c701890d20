// Values that keep an Objective-C object or a block alive, as the sources are
// compiled without automatic reference counting.
#pragma once

#include <Block.h>
#include <objc/objc.h>
#include <utility>

namespace NS {

template <typename Object> class Retained {
public:
  explicit Retained(Object object = nil) : object_([object retain]) {}
  // Takes over a reference that the caller owns.
  static Retained adopting(Object object) {
    Retained result;
    result.object_ = object;
    return result;
  }
  Retained(const Retained &other) : Retained(other.object_) {}
  Retained(Retained &&other) noexcept : object_(std::exchange(other.object_, nil)) {}
  Retained &operator=(Retained other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Retained() { [object_ release]; }

  Object get() const { return object_; }

private:
  Object object_;
};

// Keeps a block by Block_copy and Block_release: the Objective-C runtime of the
// tests on Linux does not take a block for an object. May hold nil.
template <typename Block> class HeldBlock {
public:
  explicit HeldBlock(Block block) : block_(block ? Block_copy(block) : Block()) {}
  HeldBlock(const HeldBlock &other) : HeldBlock(other.block_) {}
  HeldBlock &operator=(HeldBlock other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  ~HeldBlock() {
    if (block_)
      Block_release(block_);
  }

  Block get() const { return block_; }

private:
  Block block_;
};

} // namespace NS
