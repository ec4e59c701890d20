// Arrays that do not keep their elements alive, and filtering in place.
//
// Not thread-safe. A failed assertion names the source file
// "Sources/Additions/NSMutableArray+Additions".
#pragma once

#include "Foundation/MutableArray.h"

#include <cstddef>
#include <functional>
#include <memory>

namespace kw {

// An array that neither retains nor releases: whoever owns an element takes it
// out before it is destroyed.
std::shared_ptr<NS::MutableArray> mutableArrayUsingWeakReferences();
std::shared_ptr<NS::MutableArray> mutableArrayUsingWeakReferencesWithCapacity(std::size_t capacity);

using FilteringBlock =
    std::function<bool(const std::shared_ptr<NS::Object> &object, std::size_t index, bool &stop)>;

// Removes, all at once, the elements of which the block says no; the others
// stay in their order. Once the block sets the stop flag it is asked about no
// further one, and those stay; its answer then still counts. A nil block fails
// an assertion. The block must not change the array.
void filterInObjectsWithBlock(NS::MutableArray &receiver, const FilteringBlock &filteringBlock);

} // namespace kw
