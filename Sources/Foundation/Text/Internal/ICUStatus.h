// The outcome of a call of ICU. Internal to Foundation.
#pragma once

namespace NS {

// Tells whether the call with this UErrorCode failed. Throws std::bad_alloc when
// it failed for lack of memory, which says nothing about its arguments.
bool hasFailed(int icuStatus);

} // namespace NS
