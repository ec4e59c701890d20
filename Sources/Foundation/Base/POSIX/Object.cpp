// Defaults of every object, and class names read back from the compiler's type
// information.
#include "Foundation/Base/Object.h"

#include <cxxabi.h>

#include <cstdlib>
#include <functional>
#include <memory>

#include <fmt/format.h>

namespace NS {
namespace {

std::string demangled(const char *mangled) {
  std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(mangled, nullptr, nullptr, nullptr), &std::free);
  return text ? text.get() : mangled;
}

} // namespace

std::string nameOfType(const std::type_info &type) {
  std::string name = demangled(type.name());
  if (name.starts_with("NS::"))
    return "NS" + name.substr(4);
  // Classes of other namespaces have the prefix in their own name.
  std::size_t templateStart = name.find('<');
  std::size_t scope = name.rfind("::", templateStart);
  return scope == std::string::npos ? name : name.substr(scope + 2);
}

std::string Class::name() const {
  return nameOfType(*type_);
}

bool Object::isEqual(const Object &other) const {
  return this == &other;
}

std::size_t Object::hash() const {
  return std::hash<const void *>()(this);
}

std::string Object::className() const {
  return nameOfType(typeid(*this));
}

std::string Object::description() const {
  return fmt::format("<{}: {}>", className(), fmt::ptr(static_cast<const void *>(this)));
}

} // namespace NS
