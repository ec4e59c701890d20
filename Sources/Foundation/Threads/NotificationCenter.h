// Notifications by name within the process, delivered on the thread that
// posts them.
//
// Thread-safe. No lock is held while an observer's block runs: it may post, add
// and remove, also its own observer.
#pragma once

#include "Foundation/Base/Object.h"
#include "Foundation/Base/SharedInstance.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace NS {

struct Notification {
  std::string name;
  std::shared_ptr<Object> object; // the subject; null without one
};

class NotificationCenter : public SharedInstance<NotificationCenter> {
public:
  virtual ~NotificationCenter() = default;
  static NotificationCenter &defaultCenter() { return shared(); }
  static NotificationCenter &real();
  // Makes a private centre.
  static std::unique_ptr<NotificationCenter> create();

  // The centre calls the block for notifications of the name, nil for every
  // name, and about the object, null for any. It compares the object by
  // identity and does not keep it alive. It keeps the block until the token is
  // removed; the destruction of the token removes nothing.
  virtual std::shared_ptr<Object>
  addObserverForName(const std::optional<std::string> &name, const std::shared_ptr<Object> &object,
                     std::function<void(const Notification &)> block) = 0;
  // After the return the block is not called again, but a call that another
  // thread began may still be running. Passes over a token that was removed
  // before, or is null.
  virtual void removeObserver(const std::shared_ptr<Object> &token) = 0;

  // Calls the present observers in the order in which they were added, and
  // returns when all have returned. An exception of a block goes to the poster,
  // and the observers after it are not called.
  virtual void postNotificationName(const std::string &name,
                                    const std::shared_ptr<Object> &object) = 0;
};

} // namespace NS
