// Implemented by objects that announce changes of their values.
#pragma once

#include <string>

namespace NS {

class KeyValueObserving {
public:
  virtual ~KeyValueObserving() = default;
  // The value of the key is about to change; a call of the other follows after
  // the change.
  virtual void willChangeValueForKey(const std::string &key) = 0;
  virtual void didChangeValueForKey(const std::string &key) = 0;
};

} // namespace NS
