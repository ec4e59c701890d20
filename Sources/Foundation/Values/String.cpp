// Text as an object.
#include "Foundation/Values/String.h"

#include <functional>

namespace NS {

std::shared_ptr<String> String::stringWithString(std::string text) {
  return std::shared_ptr<String>(new String(std::move(text)));
}

bool String::isEqual(const Object &other) const {
  const auto *string = dynamic_cast<const String *>(&other);
  return string && string->text_ == text_;
}

std::size_t String::hash() const {
  return std::hash<std::string>()(text_);
}

} // namespace NS
