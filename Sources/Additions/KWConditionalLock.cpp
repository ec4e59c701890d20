// The gate, with a dispatch group for every waiter.
#include "Additions/KWConditionalLock.h"

#include "Additions/NSObjectAdditions.h"
#include "Foundation/Threads/Monitor.h"
#include "Foundation/Values/Number.h"

#include <utility>

namespace kw {
namespace {

// Limited to the range of the type; a deadline that far off never comes.
std::int64_t nanosecondsOf(double seconds) {
  double nanoseconds = seconds * static_cast<double>(NS::NanosecondsPerSecond);
  return NS::Number::numberWithDouble(nanoseconds)->longLongValue();
}

} // namespace

void KWConditionalLock::init() {
  setupInitialValues();
  setLocked(shouldLockForValue(value()));
}

bool KWConditionalLock::shouldLockForValue(const std::shared_ptr<NS::Object> &) {
  return false;
}

void KWConditionalLock::setValue(const std::shared_ptr<NS::Object> &newValue) {
  // Released outside the monitor, since its destructor may run any code.
  std::shared_ptr<NS::Object> former = newValue;
  NS::Monitor monitor(*this);
  value_.swap(former);
  setLocked(shouldLockForValue(newValue));
}

std::shared_ptr<NS::Object> KWConditionalLock::value() const {
  NS::Monitor monitor(*this);
  return value_;
}

void KWConditionalLock::setLocked(bool locked) {
  // Holds the monitor here too: a waiter that another thread is just recording
  // must either see the gate open or be released by this.
  NS::Monitor monitor(*this);
  if (locked_.exchange(locked) == locked || locked)
    return;
  for (const std::shared_ptr<NS::DispatchGroup> &group : groupsToLeaveOnUnlock_)
    group->leave();
  groupsToLeaveOnUnlock_.clear();
}

void KWConditionalLock::waitForUnlockWithTimeout(double timeout) {
  auto group = NS::DispatchGroup::create();
  {
    NS::Monitor monitor(*this);
    if (!isLocked())
      return;
    group->enter();
    groupsToLeaveOnUnlock_.insert(group);
  }
  if (timeout > 0)
    group->wait(NS::dispatchWallTime(nanosecondsOf(timeout)));
  else
    group->wait();
}

KWConditionalLock::Groups KWConditionalLock::groupsToLeaveOnUnlock() const {
  NS::Monitor monitor(*this);
  return groupsToLeaveOnUnlock_;
}

void KWConditionalLock::setGroupsToLeaveOnUnlock(Groups groups) {
  NS::Monitor monitor(*this);
  groupsToLeaveOnUnlock_ = std::move(groups);
}

void KWBoolConditionalLock::setupInitialValues() {
  setBoolValue(false);
}

bool KWBoolConditionalLock::shouldLockForValue(const std::shared_ptr<NS::Object> &) {
  return boolValue();
}

void KWBoolConditionalLock::setBoolValue(bool boolValue) {
  setValue(NS::Number::numberWithBool(boolValue));
}

bool KWBoolConditionalLock::boolValue() const {
  std::shared_ptr<NS::Number> number = castObject<NS::Number>(value());
  return number && number->boolValue();
}

} // namespace kw
