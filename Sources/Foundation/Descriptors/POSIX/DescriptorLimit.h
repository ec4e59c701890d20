// The limit of descriptors that programs started by this process get. For
// bodies of the seam only.
#pragma once

#include <optional>
#include <sys/resource.h>

namespace NS {

// The limit before raiseDescriptorLimit; empty if it was not raised.
std::optional<rlimit> limitBeforeRaising();

} // namespace NS
