// Setting an object's values by name. An object that does not implement this
// has no such values.
#pragma once

#include "Foundation/Base/Object.h"

#include <memory>
#include <string>

namespace NS {

inline constexpr const char *UndefinedKeyException = "NSUnknownKeyException";

class KeyValueCoding {
public:
  virtual ~KeyValueCoding() = default;
  // The path names one value after another, with dots between them; sets the
  // last. Raises UndefinedKeyException for an unknown name.
  virtual void setValueForKeyPath(const std::shared_ptr<Object> &value,
                                  const std::string &keyPath) = 0;
};

} // namespace NS
