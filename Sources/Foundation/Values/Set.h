// Sets of objects, equal ones counting as one. Enumeration order is
// unspecified.
#pragma once

#include "Foundation/Base/Object.h"

#include <memory>
#include <unordered_set>

namespace NS {

template <typename T = Object>
using Set = std::unordered_set<std::shared_ptr<T>, ObjectHash, ObjectEqual>;

} // namespace NS
