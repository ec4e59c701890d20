// Converts one value into another, and back if the class allows it. The whole
// process knows it by name.
//
// Any thread may use the register; a transformer's own comment says the same of
// it.
#pragma once

#include "Foundation/Base/Object.h"

#include <memory>
#include <string>

namespace NS {

class ValueTransformer : public Object {
public:
  // Null when no transformer has the name.
  static std::shared_ptr<ValueTransformer> valueTransformerForName(const std::string &name);
  // Replaces the transformer of the name; null removes the name.
  static void setValueTransformer(const std::shared_ptr<ValueTransformer> &transformer,
                                  const std::string &name);

  // A property of the class: the same for all its objects.
  virtual bool allowsReverseTransformation() const = 0;
  virtual std::shared_ptr<Object> transformedValue(const std::shared_ptr<Object> &value) = 0;
  // Call it only if the class allows it.
  virtual std::shared_ptr<Object> reverseTransformedValue(const std::shared_ptr<Object> &value) = 0;
};

} // namespace NS
