// Bindings: values of an object that follow values of another.
//
// The class that implements it says which threads may call.
#pragma once

#include "Foundation/Base/Object.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace NS {

// Keys of a binding's options.
inline constexpr const char *ValueTransformerBindingOption = "NSValueTransformer";
inline constexpr const char *ValueTransformerNameBindingOption = "NSValueTransformerName";

using BindingOptions = std::map<std::string, std::shared_ptr<Object>, std::less<>>;

// The target of a binding. Each object may be null or the null object when it
// is missing.
struct BindingInfo {
  std::shared_ptr<Object> observedObject;  // under NSObservedObjectKey
  std::shared_ptr<Object> observedKeyPath; // under NSObservedKeyPathKey, text
  std::optional<BindingOptions> options;   // under NSOptionsKey
};

class KeyValueBinding {
public:
  virtual ~KeyValueBinding() = default;
  // Empty when the binding is not bound.
  virtual std::optional<BindingInfo> infoForBinding(const std::string &binding) = 0;
  // Ends a binding that is bound.
  virtual void unbind(const std::string &binding) = 0;
};

} // namespace NS
