// The look at one item of a folder, the same for a walk and for the threads that
// read ahead of it. Internal to Foundation.
#pragma once

#include "Foundation/Walking/FTS.h"

#include <cstdint>

namespace NS {

// An item as the look found it, without its name.
struct FoundItem {
  FTSStat status;
  FTSInfo info = FTSInfo::NSOK;
  int errnum = 0; // of the look; the status is then void
};

// The sums of the items that a sieve held back.
struct HeldItems {
  std::uint64_t items = 0;
  std::uint64_t bytes = 0; // allocated
  std::int64_t number = 0;
};

// Thread-safe.
class ItemLook {
public:
  // The options of the walk, and its sieve or null.
  ItemLook(int options, const FTSSieve *sieve)
      : looksAtAll_(!(options & FTSOption::NOSTAT)), sieve_(sieve) {}

  // Looks at an item in the open folder. The type is that of its record.
  FoundItem at(int folder, const char *name, std::uint8_t type) const;
  // Tells whether the sieve holds the item back, and then adds it to the others.
  bool holdsBack(const char *name, const FoundItem &found, HeldItems &held) const;

private:
  const bool looksAtAll_;
  const FTSSieve *const sieve_;
};

// The item of that status, or the failure to read it.
FoundItem foundBy(int errnum, const FTSStat &status);

} // namespace NS
