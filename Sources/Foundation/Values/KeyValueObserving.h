// Implemented by objects that announce changes of their values.
#pragma once

#include <string>

namespace NS {

class KeyValueObserving {
public:
  virtual ~KeyValueObserving() = default;
  // The owner of the value calls the first before a change of the key's value and
  // the second after it.
  virtual void willChangeValueForKey(const std::string &key) = 0;
  virtual void didChangeValueForKey(const std::string &key) = 0;
};

} // namespace NS
