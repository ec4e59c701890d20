// The root of objects of unknown class: identity, equality, hash, description
// and class.
//
// Objects are held by std::shared_ptr. The comment of a class says whether
// several threads may use it; everything in this file allows it.
#pragma once

#include "Foundation/Base/Format.h"

#include <concepts>
#include <cstddef>
#include <memory>
#include <string>
#include <typeinfo>

namespace NS {

class Object;

// A class, or an interface that objects may conform to, as a value.
class Class {
public:
  template <typename T> static Class of() {
    return Class(typeid(T),
                 [](const Object *object) { return dynamic_cast<const T *>(object) != nullptr; });
  }

  // The name in the platform's notation: "NSNumber" for NS::Number,
  // "KWTaskRunner" for kw::KWTaskRunner.
  std::string name() const;
  // Tells whether the object is of this class, of one derived from it, or
  // conforms to it.
  bool isKind(const Object &object) const { return isKind_(&object); }

private:
  using IsKind = bool (*)(const Object *);
  Class(const std::type_info &type, IsKind test) : type_(&type), isKind_(test) {}

  const std::type_info *type_;
  IsKind isKind_;
};

class Object : public std::enable_shared_from_this<Object> {
public:
  Object() = default;
  virtual ~Object() = default;
  // Callers compare objects by identity, which a copy would not have.
  Object(const Object &) = delete;
  Object &operator=(const Object &) = delete;

  // Compares identity unless a class overrides it. Equal objects have equal
  // hashes.
  virtual bool isEqual(const Object &other) const;
  virtual std::size_t hash() const;
  // "<NSObject: 0x...>" unless a class overrides it.
  virtual std::string description() const;

  // The name of the object's own class.
  std::string className() const;
  bool isKindOfClass(const Class &other) const { return other.isKind(*this); }
};

// The dynamic type in the platform's notation.
std::string nameOfType(const std::type_info &type);

inline std::string describe(const Object &object) {
  return object.description();
}
inline std::string describe(const Class &aClass) {
  return aClass.name();
}
template <std::derived_from<Object> T> std::string describe(const std::shared_ptr<T> &object) {
  return object ? object->description() : std::string("(null)");
}

// Hash and equality of held objects, for the standard containers. Null equals
// only null.
struct ObjectHash {
  std::size_t operator()(const std::shared_ptr<const Object> &object) const {
    return object ? object->hash() : 0;
  }
};
struct ObjectEqual {
  bool operator()(const std::shared_ptr<const Object> &left,
                  const std::shared_ptr<const Object> &right) const {
    return left == right || (left && right && left->isEqual(*right));
  }
};

} // namespace NS
