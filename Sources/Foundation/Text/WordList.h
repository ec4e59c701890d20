// Lists of strings, such as a tool's arguments.
#pragma once

#include <string>
#include <vector>

namespace NS {

// Use it instead of a list in braces: when memory runs out within one, code by
// GCC 12 destroys strings that it has not made yet.
template <typename... Words> std::vector<std::string> wordList(const Words &...words) {
  std::vector<std::string> list;
  list.reserve(sizeof...(words));
  (list.emplace_back(words), ...);
  return list;
}

} // namespace NS
