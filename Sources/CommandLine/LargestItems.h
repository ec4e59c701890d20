// The largest of many items, with no more memory than these take.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kw {

struct LargeItem {
  std::uint64_t bytes = 0;
  std::string path;
};

class LargestItems {
public:
  explicit LargestItems(std::size_t most) : most_(most) {}

  void add(std::uint64_t bytes, std::string_view path) {
    if (items_.size() == most_ && (most_ == 0 || bytes <= items_.front().bytes))
      return;
    if (items_.size() == most_) {
      std::pop_heap(items_.begin(), items_.end(), isLarger);
      items_.pop_back();
    }
    items_.push_back({bytes, std::string(path)});
    std::push_heap(items_.begin(), items_.end(), isLarger);
  }
  void add(const LargestItems &others) {
    for (const LargeItem &item : others.items_)
      add(item.bytes, item.path);
  }

  // The largest first.
  std::vector<LargeItem> sorted() const {
    std::vector<LargeItem> items = items_;
    std::sort(items.begin(), items.end(), [](const LargeItem &left, const LargeItem &right) {
      return left.bytes != right.bytes ? left.bytes > right.bytes : left.path < right.path;
    });
    return items;
  }

private:
  // The smallest is at the front of the heap.
  static bool isLarger(const LargeItem &left, const LargeItem &right) {
    return left.bytes > right.bytes;
  }

  std::size_t most_;
  std::vector<LargeItem> items_;
};

} // namespace kw
