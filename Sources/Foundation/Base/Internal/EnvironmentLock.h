// The lock for reading (shared) and changing (exclusive) the C library's
// environment. Internal to Foundation.
#pragma once

#include <shared_mutex>

namespace NS {

std::shared_mutex &environmentLock();

} // namespace NS
