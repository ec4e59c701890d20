// A gate that opens and closes by a value. Any thread may set the value, a
// predicate that derived classes replace decides, and any number of threads
// wait for the gate to open.
//
// Any thread may wait, ask and set. The monitor of the lock object itself
// guards the state. A waiting thread releases the monitor, so that a setter can
// always get in.
#pragma once

#include "Foundation/Base/Object.h"
#include "Foundation/Threads/Dispatch.h"

#include <atomic>
#include <memory>
#include <set>

namespace kw {

class KWConditionalLock : public NS::Object {
public:
  using Groups = std::set<std::shared_ptr<NS::DispatchGroup>>;

  // The only way to make a lock of this class or a derived one: a constructor
  // could not call the members that a derived class replaces.
  template <typename Lock = KWConditionalLock> static std::shared_ptr<Lock> create() {
    auto lock = std::make_shared<Lock>();
    lock->init();
    return lock;
  }

  // Stores the value and opens or closes the gate by it.
  void setValue(const std::shared_ptr<NS::Object> &value);
  std::shared_ptr<NS::Object> value() const;

  bool isLocked() const { return locked_; }
  // Opens or closes the gate. Opening releases every thread that waits; a call
  // without a change does nothing. setValue calls it, and decides anew at the
  // next value.
  void setLocked(bool locked);

  // Blocks until the gate is open, or until so many seconds have passed by the
  // wall clock; 0 and less mean no limit. Returns at once when it is open.
  // isLocked tells the outcome.
  void waitForUnlockWithTimeout(double timeout);
  void waitForUnlock() { waitForUnlockWithTimeout(-1.0); }

  // One group per waiter since the gate closed. A waiter enters it once, and
  // the next opening leaves it. A waiter that gave up leaves its group here
  // until then.
  Groups groupsToLeaveOnUnlock() const;
  void setGroupsToLeaveOnUnlock(Groups groups);

protected:
  // create calls it before any other thread knows the lock. This class has no
  // value at first.
  virtual void setupInitialValues() {}
  // Tells whether the gate is closed for the value; this class closes for none.
  // Called with the monitor held.
  virtual bool shouldLockForValue(const std::shared_ptr<NS::Object> &value);

private:
  void init();

  std::atomic<bool> locked_{false};
  std::shared_ptr<NS::Object> value_;
  Groups groupsToLeaveOnUnlock_; // empty while open
};

// A gate that is closed while its value is true. It starts open.
class KWBoolConditionalLock : public KWConditionalLock {
public:
  // A value of a class other than NS::Number is a programming error and fails
  // the assertion of castObject.
  void setBoolValue(bool boolValue);
  bool boolValue() const;

protected:
  void setupInitialValues() override;
  bool shouldLockForValue(const std::shared_ptr<NS::Object> &value) override;
};

} // namespace kw
