// Non-owning arrays and filtering in place.
#include "Additions/NSMutableArray+Additions.h"

#include "Foundation/Base/AssertionHandler.h"

#include <set>

namespace kw {

std::shared_ptr<NS::MutableArray> mutableArrayUsingWeakReferences() {
  return mutableArrayUsingWeakReferencesWithCapacity(0);
}

std::shared_ptr<NS::MutableArray>
mutableArrayUsingWeakReferencesWithCapacity(std::size_t capacity) {
  return NS::MutableArray::arrayWithoutRetaining(capacity);
}

void filterInObjectsWithBlock(NS::MutableArray &receiver, const FilteringBlock &filteringBlock) {
  if (!filteringBlock) {
    NS::assertionFailed("Sources/Additions/NSMutableArray+Additions",
                        "Invalid parameter not satisfying: %@", "filteringBlock");
    return;
  }
  std::set<std::size_t> rejected;
  bool stop = false;
  for (std::size_t index = 0; index < receiver.count() && !stop; ++index)
    if (!filteringBlock(receiver.objectAtIndex(index), index, stop))
      rejected.insert(index);
  receiver.removeObjectsAtIndexes(rejected);
}

} // namespace kw
