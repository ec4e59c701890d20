// The outcome of a call of ICU. Internal to Foundation.
#pragma once

#include <new>
#include <unicode/utypes.h>

namespace NS {

// Tells whether the call failed. Throws std::bad_alloc when it failed for lack of
// memory, which says nothing about its arguments.
inline bool hasFailed(UErrorCode status) {
  if (status == U_MEMORY_ALLOCATION_ERROR)
    throw std::bad_alloc();
  return U_FAILURE(status);
}

} // namespace NS
