// Setting an object's values by name. An object that does not answer to this
// has no values that could be set.
#pragma once

#include "Foundation/Object.h"

#include <memory>
#include <string>

namespace NS {

inline constexpr const char *UndefinedKeyException = "NSUnknownKeyException";

class KeyValueCoding {
public:
  virtual ~KeyValueCoding() = default;
  // The path names one value after another, dots between them; the last is
  // set. Raises UndefinedKeyException where a name means nothing.
  virtual void setValueForKeyPath(const std::shared_ptr<Object> &value,
                                  const std::string &keyPath) = 0;
};

} // namespace NS
