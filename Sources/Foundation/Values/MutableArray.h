// A growing list of objects. It retains them, or leaves their lives to their
// owner.
//
// Not thread-safe.
#pragma once

#include "Foundation/Base/Object.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace NS {

class MutableArray final : public Object {
public:
  static std::shared_ptr<MutableArray> array();
  // Retains no element and notices no destruction: the owner takes an object
  // out before it is destroyed. The capacity is a hint.
  static std::shared_ptr<MutableArray> arrayWithoutRetaining(std::size_t capacity);

  std::size_t count() const { return elements_.size(); }
  // Raises RangeException past the end. The caller owns a reference to the
  // result.
  std::shared_ptr<Object> objectAtIndex(std::size_t index) const;
  // Raises InvalidArgumentException for null.
  void addObject(const std::shared_ptr<Object> &object);
  // The index of the first equal object.
  std::optional<std::size_t> indexOfObject(const Object &object) const;
  // Removes all at once: the indexes are those before the call. Raises
  // RangeException, and removes none, when one is past the end.
  void removeObjectsAtIndexes(const std::set<std::size_t> &indexes);

  // Compares the elements in order.
  bool isEqual(const Object &other) const override;
  std::size_t hash() const override { return count(); }
  std::string description() const override;

private:
  explicit MutableArray(bool retains) : retains_(retains) {}

  const bool retains_;
  // Without ownership in an array that does not retain.
  std::vector<std::shared_ptr<Object>> elements_;
};

} // namespace NS
