// Additions to sets of objects: mapping, filtering, searching, and adding with
// care.
//
// The functions call a block for one member after another in the set's own
// order. After a block sets its stop flag it is not called again, and its last
// result still counts. A failed assertion names the source file
// "Sources/Additions/NSSetAdditions".
#pragma once

#include "Foundation/Base/AssertionHandler.h"
#include "Foundation/Base/Exception.h"
#include "Foundation/Values/Set.h"

#include <memory>
#include <type_traits>
#include <utility>

namespace kw {

// Calls the block for each member until it stops.
template <typename T, typename Block>
void enumerateObjectsUsingBlock(const NS::Set<T> &receiver, Block &&block) {
  bool stop = false;
  for (auto member = receiver.begin(); member != receiver.end() && !stop; ++member)
    block(*member, stop);
}

// Returns the set of the results of the block, (object, bool &stop) -> pointer
// to object. Leaves out null results, and keeps one of equal results.
template <typename T, typename Block> auto map(const NS::Set<T> &receiver, Block &&block) {
  using Result = std::invoke_result_t<Block &, const std::shared_ptr<T> &, bool &>;
  NS::Set<typename std::remove_cvref_t<Result>::element_type> results(receiver.size());
  enumerateObjectsUsingBlock(receiver, [&](const std::shared_ptr<T> &object, bool &stop) {
    if (auto result = block(object, stop))
      results.insert(std::move(result));
  });
  return results;
}

// Returns the union of the sets that the block, (object, bool &stop) -> set,
// returns. Of equal members the first one stays.
template <typename T, typename Block> auto flatMap(const NS::Set<T> &receiver, Block &&block) {
  std::remove_cvref_t<std::invoke_result_t<Block &, const std::shared_ptr<T> &, bool &>> results;
  enumerateObjectsUsingBlock(receiver, [&](const std::shared_ptr<T> &object, bool &stop) {
    const auto &added = block(object, stop);
    results.insert(added.begin(), added.end());
  });
  return results;
}

// Returns the members for which the block, (object, bool &stop) -> bool,
// returns true.
template <typename T, typename Block> NS::Set<T> filter(const NS::Set<T> &receiver, Block &&block) {
  return map(receiver, [&](const std::shared_ptr<T> &object, bool &stop) {
    return block(object, stop) ? object : nullptr;
  });
}

// Returns the first member for which the block returns true, null when there is
// none.
template <typename T, typename Block>
std::shared_ptr<T> first(const NS::Set<T> &receiver, Block &&block) {
  NS::Set<T> found = filter(receiver, [&](const std::shared_ptr<T> &object, bool &stop) {
    bool matches = block(object, stop);
    stop = stop || matches;
    return matches;
  });
  return found.empty() ? nullptr : *found.begin();
}

// Returns the only member, null for an empty set. More than one fails an
// assertion; if the handler returns, any of them.
template <typename T> std::shared_ptr<T> singleObject(const NS::Set<T> &receiver) {
  if (receiver.size() > 1)
    NS::assertionFailed("Sources/Additions/NSSetAdditions",
                        "This method may not be applied for containers with multiple items");
  return receiver.empty() ? nullptr : *receiver.begin();
}

// Adds the object and tells whether the set grew. Null, and the equal of a
// member, which stays, do not count.
template <typename T>
bool safeAddObject(NS::Set<T> &receiver, const std::type_identity_t<std::shared_ptr<T>> &object) {
  return object && receiver.insert(object).second;
}

// Adds the object in place of its equal. Raises InvalidArgumentException for
// null, and leaves the set unchanged.
template <typename T>
void addOrReplaceObject(NS::Set<T> &receiver,
                        const std::type_identity_t<std::shared_ptr<T>> &object) {
  if (!object)
    throw NS::Exception(NS::InvalidArgumentException, "object cannot be nil");
  // The caller's reference may be to the member that is replaced.
  std::shared_ptr<T> added = object;
  receiver.erase(added);
  receiver.insert(std::move(added));
}

} // namespace kw
