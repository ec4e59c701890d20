// Makes one value of another, and where the class allows it the other way
// round; known to the whole process by name.
//
// The register may be used from any thread; a transformer says for itself.
#pragma once

#include "Foundation/Object.h"

#include <memory>
#include <string>

namespace NS {

class ValueTransformer : public Object {
public:
  // Null when no transformer has the name.
  static std::shared_ptr<ValueTransformer> valueTransformerForName(const std::string &name);
  // Takes the place of the one that had the name; null takes the name back.
  static void setValueTransformer(const std::shared_ptr<ValueTransformer> &transformer,
                                  const std::string &name);

  // A property of the class: the same for all its objects.
  virtual bool allowsReverseTransformation() const = 0;
  virtual std::shared_ptr<Object> transformedValue(const std::shared_ptr<Object> &value) = 0;
  // Only where the class allows it.
  virtual std::shared_ptr<Object> reverseTransformedValue(const std::shared_ptr<Object> &value) = 0;
};

} // namespace NS
