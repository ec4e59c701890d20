// A walk over a property list without recursion, for printers of any form.
#pragma once

#include "Foundation/PropertyLists/PropertyList.h"

#include <cstddef>
#include <vector>

namespace NS {

// Calls, with the depth (0 for the root):
//   bool leaf(const PropertyList &, depth)   a value that holds no others
//   bool begin(const PropertyList &, depth)  an array or a dictionary
//   bool key(const std::string &, depth)     before each value of a dictionary
//   bool end(const PropertyList &, depth)
// Each returns whether to go on. The walk returns whether it came to its end.
template <typename Visitor> bool walk(const PropertyList &root, Visitor &visitor) {
  struct Frame {
    const PropertyList *container;
    std::size_t next;
  };
  std::vector<Frame> frames;
  auto visit = [&](const PropertyList &value) {
    if (!value.array() && !value.dictionary())
      return visitor.leaf(value, frames.size());
    bool goOn = visitor.begin(value, frames.size());
    frames.push_back({&value, 0});
    return goOn;
  };
  if (!visit(root))
    return false;
  while (!frames.empty()) {
    auto &[container, next] = frames.back();
    const auto *array = container->array();
    const auto *dictionary = container->dictionary();
    if (next == (array ? array->size() : dictionary->size())) {
      const PropertyList *ended = container;
      frames.pop_back();
      if (!visitor.end(*ended, frames.size()))
        return false;
      continue;
    }
    std::size_t index = next++;
    if (dictionary && !visitor.key((*dictionary)[index].key, frames.size()))
      return false;
    if (!visit(array ? (*array)[index] : (*dictionary)[index].value))
      return false;
  }
  return true;
}

} // namespace NS
