// Two counts for the whole process: walks at work, and their helpers.
#include "Foundation/Linux/WalkHelpers.h"

#include "Foundation/SharedInstance.h"

#include <atomic>
#include <sched.h>

namespace NS {
namespace {

std::atomic<unsigned> walks{0};
std::atomic<unsigned> helpers{0};

class UsableProcessors final : public Processors {
public:
  unsigned usable() const override {
    cpu_set_t set;
    // Fails when there are more processors than the set has bits; there are
    // then enough.
    if (::sched_getaffinity(0, sizeof set, &set) != 0)
      return CPU_SETSIZE;
    return static_cast<unsigned>(CPU_COUNT(&set));
  }
};

SharedInstance<Processors> &instance() {
  static UsableProcessors real;
  static SharedInstance<Processors> shared(real);
  return shared;
}

} // namespace

Processors &Processors::shared() {
  return instance().get();
}

Processors *Processors::exchangeShared(Processors *replacement) {
  return instance().exchange(replacement);
}

WalkHelpers::~WalkHelpers() {
  if (counted_)
    walks.fetch_sub(1, std::memory_order_relaxed);
}

void WalkHelpers::wantHelp() {
  if (counted_)
    return;
  counted_ = true;
  walks.fetch_add(1, std::memory_order_relaxed);
}

bool WalkHelpers::mayJoin() {
  unsigned count = helpers.load(std::memory_order_relaxed);
  while (count + walks.load(std::memory_order_relaxed) < processors_)
    if (helpers.compare_exchange_weak(count, count + 1, std::memory_order_relaxed))
      return true;
  return false;
}

bool WalkHelpers::mayStay() const {
  return helpers.load(std::memory_order_relaxed) + walks.load(std::memory_order_relaxed) <=
         processors_;
}

void WalkHelpers::leave() {
  helpers.fetch_sub(1, std::memory_order_relaxed);
}

} // namespace NS
