// What an object answers to that announces changes of its values.
#pragma once

#include <string>

namespace NS {

class KeyValueObserving {
public:
  virtual ~KeyValueObserving() = default;
  // The value of the key is about to change; the other follows once it has.
  virtual void willChangeValueForKey(const std::string &key) = 0;
  virtual void didChangeValueForKey(const std::string &key) = 0;
};

} // namespace NS
