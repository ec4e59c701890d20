// Notifications by name within the process, delivered on the thread that
// posts them.
//
// Thread-safe. No lock is held while an observer's block runs: it may post,
// add and remove, itself included.
#pragma once

#include "Foundation/Object.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace NS {

struct Notification {
  std::string name;
  std::shared_ptr<Object> object; // whom it is about, null for nobody
};

class NotificationCenter {
public:
  virtual ~NotificationCenter() = default;
  static NotificationCenter &defaultCenter();
  static NotificationCenter *exchangeShared(NotificationCenter *replacement);
  // A centre of one's own.
  static std::unique_ptr<NotificationCenter> create();

  // The block is called for notifications of the name, nil for every name, and
  // about the object, null for any; the object is compared by identity and
  // not kept alive. The centre keeps the block until the token is removed;
  // letting go of the token removes nothing.
  virtual std::shared_ptr<Object>
  addObserverForName(const std::optional<std::string> &name, const std::shared_ptr<Object> &object,
                     std::function<void(const Notification &)> block) = 0;
  // Once this returns the block is not called again, but a call that another
  // thread began may still be running. A token that was removed before, or is
  // null, is passed over.
  virtual void removeObserver(const std::shared_ptr<Object> &token) = 0;

  // Calls the observers there are at the moment, in the order in which they
  // were added, and returns when all have returned. What a block throws goes
  // to the poster, and the observers after it are not called.
  virtual void postNotificationName(const std::string &name,
                                    const std::shared_ptr<Object> &object) = 0;
};

} // namespace NS
