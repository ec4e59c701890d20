// The growing list.
#include "Foundation/Values/MutableArray.h"

#include <algorithm>

namespace NS {
namespace {

constexpr std::size_t mostReserved = 4096; // a hint may be any number

[[noreturn]] void raiseRange(std::size_t index, std::size_t count) {
  throw Exception(RangeException,
                  stringWithFormat("index %lu beyond bounds for array of %lu", index, count));
}

} // namespace

std::shared_ptr<MutableArray> MutableArray::array() {
  return std::shared_ptr<MutableArray>(new MutableArray(true));
}

std::shared_ptr<MutableArray> MutableArray::arrayWithoutRetaining(std::size_t capacity) {
  std::shared_ptr<MutableArray> array(new MutableArray(false));
  array->elements_.reserve(std::min(capacity, mostReserved));
  return array;
}

std::shared_ptr<Object> MutableArray::objectAtIndex(std::size_t index) const {
  if (index >= count())
    raiseRange(index, count());
  return elements_[index]->shared_from_this();
}

void MutableArray::addObject(const std::shared_ptr<Object> &object) {
  if (!object)
    throw Exception(InvalidArgumentException, "object cannot be nil");
  if (retains_)
    elements_.push_back(object);
  else
    elements_.emplace_back(std::shared_ptr<Object>(), object.get());
}

std::optional<std::size_t> MutableArray::indexOfObject(const Object &object) const {
  auto found = std::find_if(elements_.begin(), elements_.end(), [&](const auto &element) {
    return element.get() == &object || element->isEqual(object);
  });
  if (found == elements_.end())
    return std::nullopt;
  return static_cast<std::size_t>(found - elements_.begin());
}

void MutableArray::removeObjectsAtIndexes(const std::set<std::size_t> &indexes) {
  if (!indexes.empty() && *indexes.rbegin() >= count())
    raiseRange(*indexes.rbegin(), count());
  std::vector<std::shared_ptr<Object>> kept, removed;
  for (std::size_t index = 0; index < count(); ++index)
    (indexes.contains(index) ? removed : kept).push_back(std::move(elements_[index]));
  // Destroys the removed ones last: their destructors may use the new array.
  elements_.swap(kept);
}

bool MutableArray::isEqual(const Object &other) const {
  const auto *array = dynamic_cast<const MutableArray *>(&other);
  return array && std::equal(elements_.begin(), elements_.end(), array->elements_.begin(),
                             array->elements_.end(), ObjectEqual());
}

std::string MutableArray::description() const {
  std::vector<std::string> texts;
  for (const std::shared_ptr<Object> &element : elements_)
    texts.push_back(element->description());
  return describe(texts);
}

} // namespace NS
