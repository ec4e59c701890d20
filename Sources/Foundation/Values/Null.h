// The object that represents a missing value when an object is required.
// Immutable.
#pragma once

#include "Foundation/Base/Object.h"

namespace NS {

class Null final : public Object {
public:
  static const std::shared_ptr<Null> &null();
  std::string description() const override { return "<null>"; }

private:
  Null() = default;
};

// Tells whether there is no usable value: a null pointer, or the null object.
inline bool isNilOrNull(const std::shared_ptr<const Object> &object) {
  return !object || object->isKindOfClass(Class::of<Null>());
}

} // namespace NS
