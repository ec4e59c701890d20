// A gate that a value opens and closes: whoever sets the value decides, through
// a predicate that derived classes replace, and any number of threads wait for
// the gate to open.
//
// Any thread may wait, ask and set. State is guarded by the monitor of the lock
// object itself, which is free again while a thread waits, so that a setter can
// always get in.
#pragma once

#include "Foundation/Dispatch.h"
#include "Foundation/Object.h"

#include <atomic>
#include <memory>
#include <set>

namespace kw {

class KWConditionalLock : public NS::Object {
public:
  using Groups = std::set<std::shared_ptr<NS::DispatchGroup>>;

  // The one way to make a lock of this class or a derived one: a constructor
  // could not call what the derived class replaces.
  template <typename Lock = KWConditionalLock> static std::shared_ptr<Lock> create() {
    auto lock = std::make_shared<Lock>();
    lock->init();
    return lock;
  }

  // Stores the value and opens or closes the gate by it.
  void setValue(const std::shared_ptr<NS::Object> &value);
  std::shared_ptr<NS::Object> value() const;

  bool isLocked() const { return locked_; }
  // Opening releases every thread that waits; setting what is already so
  // changes nothing. Called by setValue, which decides anew at the next value.
  void setLocked(bool locked);

  // Blocks until the gate is open, at once when it is, or until so many
  // seconds have passed by the clock on the wall; 0 and less are no limit. The
  // outcome is isLocked's to tell.
  void waitForUnlockWithTimeout(double timeout);
  void waitForUnlock() { waitForUnlockWithTimeout(-1.0); }

  // One group per waiter since the gate closed, entered once and left at the
  // next opening. A waiter that gave up leaves its group here until then.
  Groups groupsToLeaveOnUnlock() const;
  void setGroupsToLeaveOnUnlock(Groups groups);

protected:
  // Called by create, before any other thread knows the lock. Derived classes
  // call this one first.
  virtual void setupInitialValues();
  // Whether the gate is closed for the value; for none here. Called with the
  // monitor held.
  virtual bool shouldLockForValue(const std::shared_ptr<NS::Object> &value);

private:
  void init();

  std::atomic<bool> locked_{false};
  std::shared_ptr<NS::Object> value_;
  Groups groupsToLeaveOnUnlock_; // empty while open
};

// The gate that is closed while its value is true. Open at first.
class KWBoolConditionalLock : public KWConditionalLock {
public:
  // A value of another class than NS::Number is a programming error and fails
  // the assertion of castObject.
  void setBoolValue(bool boolValue);
  bool boolValue() const;

protected:
  void setupInitialValues() override;
  bool shouldLockForValue(const std::shared_ptr<NS::Object> &value) override;
};

} // namespace kw
