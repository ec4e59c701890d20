// The content of batches that the walk has used, kept to be filled again. Internal
// to Foundation.
//
// The reading thread makes content and the walk's thread releases it. An
// allocator that serves several threads pays for each block that goes that way:
// the releasing thread has to take the lock of the other's heap. Using content
// again spares this, and spares growing its two buffers each time.
//
// Large content is not kept, as few folders are large: the spares together hold
// at most a mebibyte. Nothing here allocates after the construction, so that
// returning content works without memory.
//
// Guarded by the lock of ReadAhead.
#pragma once

#include "Foundation/Walking/Internal/AheadBatch.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace NS {

class AheadSpares {
public:
  AheadSpares() { spares_.reserve(most); }

  // Null when there is none.
  std::unique_ptr<AheadContent> take() {
    if (spares_.empty())
      return nullptr;
    std::unique_ptr<AheadContent> content = std::move(spares_.back());
    spares_.pop_back();
    return content;
  }

  // May be null.
  void give(std::unique_ptr<AheadContent> content) {
    if (!content || spares_.size() == most || content->bytes() > largest)
      return;
    content->names.clear();
    content->items.clear();
    spares_.push_back(std::move(content));
  }

private:
  static constexpr std::size_t most = 64;
  static constexpr std::size_t largest = 16 * 1024;

  std::vector<std::unique_ptr<AheadContent>> spares_;
};

} // namespace NS
