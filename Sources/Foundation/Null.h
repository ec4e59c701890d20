// The object that stands for nothing where an object is required. Immutable.
#pragma once

#include "Foundation/Object.h"

namespace NS {

class Null final : public Object {
public:
  static const std::shared_ptr<Null> &null();
  std::string description() const override { return "<null>"; }

private:
  Null() = default;
};

// Whether there is no usable value: no object, or the one that says so.
inline bool isNilOrNull(const std::shared_ptr<const Object> &object) {
  return !object || object->isKindOfClass(Class::of<Null>());
}

} // namespace NS
