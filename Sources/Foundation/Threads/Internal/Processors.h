// The host's processors, and whether a thread waits instead of using one.
// Internal to Foundation.
//
// Thread-safe.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>

namespace NS {

class Processors : public SharedInstance<Processors> {
public:
  virtual ~Processors() = default;
  static Processors &real();

  // The number of those that the calling thread may run on.
  virtual unsigned usable() const = 0;
  // The most threads of one operation, with any number of processors: a few
  // exhaust the parallelism of a volume's own locks.
  virtual unsigned threadsForVolume() const { return 4; }
  // How many threads of one operation keep a device busy, however few
  // processors there are.
  virtual unsigned threadsForDevice() const { return 8; }
};

// A count that grows whenever the calling thread gives up its processor to wait
// for a device, a lock or another thread. Compare only two values of one thread.
std::uint64_t waitsOfThisThread();

namespace host {

// The number of those that the calling thread may run on. The file of each host
// has this function and waitsOfThisThread.
unsigned usableProcessors();

} // namespace host

} // namespace NS
