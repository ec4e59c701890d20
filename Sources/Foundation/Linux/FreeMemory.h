// Returns memory of finished requests to the system: the allocator would keep
// it for later ones, which may never come.
#pragma once

#include "Foundation/Linux/BusThread.h"

namespace NS {

// On the thread of the bus, or before it starts. One for a process.
class FreeMemory {
public:
  // From here on large blocks go back as soon as they are free.
  explicit FreeMemory(BusThread &connection);

  // Gives back the small ones too, a little later: many clients that leave at
  // once cost it once.
  void giveBackSoon();

private:
  BusThread &connection_;
  bool isAboutTo_ = false;
};

} // namespace NS
