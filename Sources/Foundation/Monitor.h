// The recursive lock that every object has without carrying one: found by the
// object's identity, made when first contended for, gone when nobody holds it
// or waits.
#pragma once

#include "Foundation/Object.h"

#include <utility>

namespace NS {

// Holds the object's monitor from construction to destruction, blocking until
// it is free. The thread that holds it may take it again. The object must
// outlive the holding.
class Monitor {
public:
  explicit Monitor(const Object &object);
  ~Monitor();
  Monitor(const Monitor &) = delete;
  Monitor &operator=(const Monitor &) = delete;

private:
  struct Entry;
  const Object *const object_;
  Entry *entry_;

  friend class MonitorTable;
};

// Calls the block with the object's monitor held and gives what it returns.
template <typename Block> decltype(auto) synchronized(const Object &object, Block &&block) {
  Monitor monitor(object);
  return std::forward<Block>(block)();
}

} // namespace NS
