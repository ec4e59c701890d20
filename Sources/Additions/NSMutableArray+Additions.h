// Arrays that do not keep their elements alive, and filtering in place.
//
// Not thread-safe. A failed assertion names the source file
// "Sources/Additions/NSMutableArray+Additions".
#pragma once

#include "Foundation/Values/MutableArray.h"

#include <cstddef>
#include <functional>
#include <memory>

namespace kw {

// Makes an array that neither retains nor releases. The owner of an element
// must take it out before its destruction.
std::shared_ptr<NS::MutableArray> mutableArrayUsingWeakReferences();
std::shared_ptr<NS::MutableArray> mutableArrayUsingWeakReferencesWithCapacity(std::size_t capacity);

using FilteringBlock =
    std::function<bool(const std::shared_ptr<NS::Object> &object, std::size_t index, bool &stop)>;

// Removes, all at once, the elements for which the block returns false; the
// others keep their order. After the block sets the stop flag it is not called
// again and the remaining elements stay; its last answer still counts. A nil
// block fails an assertion. The block must not change the array.
void filterInObjectsWithBlock(NS::MutableArray &receiver, const FilteringBlock &filteringBlock);

} // namespace kw
