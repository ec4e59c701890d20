// Starting helpers, and waiting for them.
#include "Foundation/Threads/Internal/Crew.h"

#include "Foundation/Base/Progress.h"

#include <exception>
#include <utility>

namespace NS {

bool Crew::call() {
  helpers_.want();
  bool hasAny = false;
  bool mayStart = true;
  for (Member &member : members_) {
    if (member.isOver.load(std::memory_order_acquire))
      mayStart = mayStart && start(member);
    hasAny = hasAny || !member.isOver.load(std::memory_order_relaxed);
  }
  return hasAny;
}

bool Crew::start(Member &member) {
  HelperPlace place = helpers_.take();
  if (!place)
    return false;
  if (member.thread.joinable())
    member.thread.join();
  member.isOver.store(false, std::memory_order_relaxed);
  try {
    member.thread = std::thread(
        [this, &member, &progress = Progress::current(), held = std::move(place)]() mutable {
          Progress::Scope scope(progress);
          work_(held);
          held.rest();
          member.isOver.store(true, std::memory_order_release);
        });
    return true;
  } catch (const std::exception &) { // no thread, or no memory for one
    member.isOver.store(true, std::memory_order_relaxed);
    return false;
  }
}

void Crew::join() {
  for (Member &member : members_)
    if (member.thread.joinable())
      member.thread.join();
}

} // namespace NS
