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

  // Those that the calling thread may run on.
  virtual unsigned usable() const = 0;
  // The most threads of one operation, with any number of processors: a few
  // exhaust the parallelism of a volume's own locks.
  virtual unsigned threadsForVolume() const { return 4; }
  // How many threads of one operation keep a device busy, however few
  // processors there are.
  virtual unsigned threadsForDevice() const { return 8; }
};

// Grows whenever the calling thread gives its processor up to wait for
// something: a device, a lock, another thread. Only the difference of two
// values of one thread means anything.
std::uint64_t waitsOfThisThread();

namespace host {

// Those that the calling thread may run on, from each host's own file, which
// has waitsOfThisThread too.
unsigned usableProcessors();

} // namespace host

} // namespace NS
