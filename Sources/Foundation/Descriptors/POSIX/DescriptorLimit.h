// The limit of descriptors that programs started by this process get. Internal
// to Foundation. Thread-safe.
#pragma once

#include <optional>
#include <sys/resource.h>

namespace NS {

// The limit before raiseDescriptorLimit; empty if it was not raised.
std::optional<rlimit> limitBeforeRaising();

} // namespace NS
