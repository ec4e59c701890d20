// Text as an object, for values of unknown class. Code that knows the class
// uses std::string. Immutable.
#pragma once

#include "Foundation/Base/Object.h"

#include <string>
#include <utility>

namespace NS {

class String final : public Object {
public:
  static std::shared_ptr<String> stringWithString(std::string text);

  const std::string &string() const { return text_; }

  // Byte for byte.
  bool isEqual(const Object &other) const override;
  std::size_t hash() const override;
  std::string description() const override { return text_; }

private:
  explicit String(std::string text) : text_(std::move(text)) {}

  const std::string text_;
};

} // namespace NS
