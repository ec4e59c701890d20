// A recursive lock for every object. The lock is not in the object but in a table
// by the object's address; it exists while a thread holds it or waits for it.
#pragma once

#include "Foundation/Base/Object.h"

#include <utility>

namespace NS {

// Holds the object's monitor from construction to destruction, and blocks until
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

// Calls the block with the object's monitor held and returns its result.
template <typename Block> decltype(auto) synchronized(const Object &object, Block &&block) {
  Monitor monitor(object);
  return std::forward<Block>(block)();
}

} // namespace NS
