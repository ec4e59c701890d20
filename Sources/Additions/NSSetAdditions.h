// What sets of objects can do besides holding them: mapping, filtering,
// searching, and adding with care.
//
// Blocks are called for one member after another in the set's own order; a
// block that sets its stop flag is called for no further one, and what it
// returns then still counts. A failed assertion names the source file
// "Sources/Additions/NSSetAdditions".
#pragma once

#include "Foundation/AssertionHandler.h"
#include "Foundation/Exception.h"
#include "Foundation/Set.h"

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

// What the block, (object, bool &stop) -> pointer to object, makes of the
// members; null leaves one out, and equal results become one.
template <typename T, typename Block> auto map(const NS::Set<T> &receiver, Block &&block) {
  using Result = std::invoke_result_t<Block &, const std::shared_ptr<T> &, bool &>;
  NS::Set<typename std::remove_cvref_t<Result>::element_type> results(receiver.size());
  enumerateObjectsUsingBlock(receiver, [&](const std::shared_ptr<T> &object, bool &stop) {
    if (auto result = block(object, stop))
      results.insert(std::move(result));
  });
  return results;
}

// The union of the sets that the block, (object, bool &stop) -> set, gives.
// Of equal members the one that came first stays.
template <typename T, typename Block> auto flatMap(const NS::Set<T> &receiver, Block &&block) {
  std::remove_cvref_t<std::invoke_result_t<Block &, const std::shared_ptr<T> &, bool &>> results;
  enumerateObjectsUsingBlock(receiver, [&](const std::shared_ptr<T> &object, bool &stop) {
    const auto &added = block(object, stop);
    results.insert(added.begin(), added.end());
  });
  return results;
}

// The members of which the block, (object, bool &stop) -> bool, says yes.
template <typename T, typename Block> NS::Set<T> filter(const NS::Set<T> &receiver, Block &&block) {
  return map(receiver, [&](const std::shared_ptr<T> &object, bool &stop) {
    return block(object, stop) ? object : nullptr;
  });
}

// The first member of which the block says yes, null when there is none.
template <typename T, typename Block>
std::shared_ptr<T> first(const NS::Set<T> &receiver, Block &&block) {
  NS::Set<T> found = filter(receiver, [&](const std::shared_ptr<T> &object, bool &stop) {
    bool matches = block(object, stop);
    stop = stop || matches;
    return matches;
  });
  return found.empty() ? nullptr : *found.begin();
}

// The only member, null of an empty set. More than one fails an assertion;
// should the handler return, any of them.
template <typename T> std::shared_ptr<T> singleObject(const NS::Set<T> &receiver) {
  if (receiver.size() > 1)
    NS::assertionFailed("Sources/Additions/NSSetAdditions",
                        "This method may not be applied for containers with multiple items");
  return receiver.empty() ? nullptr : *receiver.begin();
}

// Whether the set grew: not by null, nor by the equal of a member, which stays.
template <typename T>
bool safeAddObject(NS::Set<T> &receiver, const std::type_identity_t<std::shared_ptr<T>> &object) {
  return object && receiver.insert(object).second;
}

// Adds the object in place of its equal. Raises InvalidArgumentException for
// null, the set unchanged.
template <typename T>
void addOrReplaceObject(NS::Set<T> &receiver,
                        const std::type_identity_t<std::shared_ptr<T>> &object) {
  if (!object)
    throw NS::Exception(NS::InvalidArgumentException, "object cannot be nil");
  // The object may be known to the caller by the member that goes.
  std::shared_ptr<T> added = object;
  receiver.erase(added);
  receiver.insert(std::move(added));
}

} // namespace kw
