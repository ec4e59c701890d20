// The lock beneath which the C library's environment is read (shared) and
// changed (exclusive). Not for use above the seam.
#pragma once

#include <shared_mutex>

namespace NS {

std::shared_mutex &environmentLock();

} // namespace NS
