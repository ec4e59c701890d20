// Separates a lack of memory from the other failures.
#include "Foundation/Text/Internal/ICUStatus.h"

#include <new>
#include <unicode/utypes.h>

namespace NS {

bool hasFailed(int icuStatus) {
  if (icuStatus == U_MEMORY_ALLOCATION_ERROR)
    throw std::bad_alloc();
  return icuStatus > U_ZERO_ERROR;
}

} // namespace NS
