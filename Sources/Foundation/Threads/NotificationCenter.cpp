// The notification centre: a list of observers, copied for each delivery.
#include "Foundation/Threads/NotificationCenter.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace NS {
namespace {

class Observer final : public Object {
public:
  using Block = std::function<void(const Notification &)>;

  Observer(std::optional<std::string> name, const std::shared_ptr<Object> &object, Block block)
      : name_(std::move(name)), aboutAny_(!object), object_(object), block_(std::move(block)) {}

  bool wants(const Notification &notification) const {
    if (name_ && *name_ != notification.name)
      return false;
    // Compares ownership: a new object at the address of a destroyed one does
    // not match.
    return aboutAny_ || (!object_.owner_before(notification.object) &&
                         !notification.object.owner_before(object_));
  }
  void deliver(const Notification &notification) const {
    if (!removed_.load(std::memory_order_acquire))
      block_(notification);
  }
  void markRemoved() { removed_.store(true, std::memory_order_release); }

private:
  const std::optional<std::string> name_;
  const bool aboutAny_;
  const std::weak_ptr<Object> object_;
  const Block block_;
  std::atomic<bool> removed_{false};
};

class Center final : public NotificationCenter {
public:
  std::shared_ptr<Object>
  addObserverForName(const std::optional<std::string> &name, const std::shared_ptr<Object> &object,
                     std::function<void(const Notification &)> block) override {
    auto observer = std::make_shared<Observer>(name, object, std::move(block));
    std::lock_guard lock(mutex_);
    observers_.push_back(observer);
    return observer;
  }

  void removeObserver(const std::shared_ptr<Object> &token) override {
    // Released outside the mutex: the destruction of the block may use the
    // centre.
    std::shared_ptr<Observer> removed;
    std::lock_guard lock(mutex_);
    auto found = std::find(observers_.begin(), observers_.end(), token);
    if (found == observers_.end())
      return;
    removed = std::move(*found);
    removed->markRemoved();
    observers_.erase(found);
  }

  void postNotificationName(const std::string &name,
                            const std::shared_ptr<Object> &object) override {
    Notification notification{name, object};
    for (const std::shared_ptr<Observer> &observer : observersFor(notification))
      observer->deliver(notification);
  }

private:
  std::vector<std::shared_ptr<Observer>> observersFor(const Notification &notification) {
    std::vector<std::shared_ptr<Observer>> wanting;
    std::lock_guard lock(mutex_);
    std::copy_if(observers_.begin(), observers_.end(), std::back_inserter(wanting),
                 [&](const auto &observer) { return observer->wants(notification); });
    return wanting;
  }

  std::mutex mutex_;
  std::vector<std::shared_ptr<Observer>> observers_; // in the order of adding
};

} // namespace

NotificationCenter &NotificationCenter::real() {
  return lastingInstance<Center>();
}

std::unique_ptr<NotificationCenter> NotificationCenter::create() {
  return std::make_unique<Center>();
}

} // namespace NS
