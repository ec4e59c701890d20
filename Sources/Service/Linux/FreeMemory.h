// Returns memory of finished requests to the system: the allocator would keep
// it for later ones, which may never come.
#pragma once

#include "Service/Linux/BusThread.h"

namespace NS {

// Use it on the thread of the bus, or before that starts. One for a process.
class FreeMemory {
public:
  // From its construction on the allocator releases large blocks as soon as
  // they are free.
  explicit FreeMemory(BusThread &connection);

  // Releases the small blocks too, a second later. Calls until then share that
  // one release, which takes time.
  void giveBackSoon();

private:
  BusThread &connection_;
  bool isAboutTo_ = false;
};

} // namespace NS
