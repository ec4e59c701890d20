// Lists of strings, such as a tool's arguments.
#pragma once

#include <string>
#include <vector>

namespace NS {

// Rather than a list in braces: should memory run out within one, GCC 12 takes
// down strings that it has not made yet.
template <typename... Words> std::vector<std::string> wordList(const Words &...words) {
  std::vector<std::string> list;
  list.reserve(sizeof...(words));
  (list.emplace_back(words), ...);
  return list;
}

} // namespace NS
