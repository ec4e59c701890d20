// Compares property lists without recursion.
#include "Foundation/PropertyLists/PropertyList.h"

#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace NS {
namespace {

using Pairs = std::vector<std::pair<const PropertyList *, const PropertyList *>>;

bool leavesAreEqual(const PropertyList &left, const PropertyList &right) {
  if (auto number = left.real())
    return *number == *right.real() || (std::isnan(*number) && std::isnan(*right.real()));
  if (const std::string *text = left.string())
    return *text == *right.string();
  if (const std::string *bytes = left.data())
    return *bytes == *right.data();
  return left.integer() == right.integer() && left.unsignedInteger() == right.unsignedInteger() &&
         left.boolean() == right.boolean() && left.date() == right.date();
}

// Adds the pairs of children to be compared; false when they cannot be equal.
bool pushChildren(const PropertyList &left, const PropertyList &right, Pairs &pairs) {
  if (const auto *array = left.array()) {
    const auto &other = *right.array();
    if (array == &other)
      return true;
    if (array->size() != other.size())
      return false;
    for (std::size_t index = 0; index < other.size(); ++index)
      pairs.emplace_back(&(*array)[index], &other[index]);
    return true;
  }
  const auto &entries = *left.dictionary(), &other = *right.dictionary();
  if (&entries == &other)
    return true;
  if (entries.size() != other.size())
    return false;
  for (std::size_t index = 0; index < other.size(); ++index) {
    if (entries[index].key != other[index].key)
      return false;
    pairs.emplace_back(&entries[index].value, &other[index].value);
  }
  return true;
}

} // namespace

bool operator==(const PropertyList &left, const PropertyList &right) {
  Pairs pairs{{&left, &right}};
  while (!pairs.empty()) {
    auto [one, other] = pairs.back();
    pairs.pop_back();
    if (one->kind() != other->kind())
      return false;
    bool isContainer = one->array() || one->dictionary();
    if (!(isContainer ? pushChildren(*one, *other, pairs) : leavesAreEqual(*one, *other)))
      return false;
  }
  return true;
}

} // namespace NS
