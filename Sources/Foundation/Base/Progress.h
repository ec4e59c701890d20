// The progress of the current request, and whether its requester has cancelled
// it.
//
// The request owns its progress. Walks count into that of their own thread and
// look whether it was cancelled; threads that help a walk adopt the walk's
// progress. Thread-safe. No call blocks for long or throws.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace NS {

class Progress {
public:
  // Longer paths are cut at the front, which keeps the item's own name.
  static constexpr std::size_t longestPath = 1024;

  struct Snapshot {
    std::uint64_t items = 0;
    std::uint64_t bytes = 0;
    std::string path; // as bytes; empty until a walk has answered wantsPath()
  };

  class Scope;

  // The progress of the calling thread. A thread without one gets one that
  // counts nothing and cannot be cancelled, so that no caller has to test for
  // it.
  static Progress &current();

  Progress() = default;
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  // Cancels for good. It interrupts no call: walks stop before their next item.
  void cancel();
  bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

  // Count items that were changed or measured, and their bytes: one item, or so
  // many.
  void countItem(std::uint64_t bytes) { countItems(1, bytes); }
  void countItems(std::uint64_t items, std::uint64_t bytes) {
    if (inert_)
      return;
    items_.fetch_add(items, std::memory_order_relaxed);
    bytes_.fetch_add(bytes, std::memory_order_relaxed);
  }

  // Tells whether a path was requested since the last one was set. Walks ask
  // before they build one, so that a progress without an observer costs
  // nothing.
  bool wantsPath() const { return wantsPath_.load(std::memory_order_relaxed); }
  // Sets the present place of the walk. Without memory for it the former path
  // stays.
  void setPath(std::string_view path);

  // The present counts and the path set last. Asks the walk for a new path.
  // Without memory for the path the snapshot has none.
  Snapshot snapshot();

private:
  struct Inert {};
  explicit Progress(Inert /*unused*/) : inert_(true) {}

  const bool inert_ = false;
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> wantsPath_{false};
  std::atomic<std::uint64_t> items_{0};
  std::atomic<std::uint64_t> bytes_{0};
  std::mutex mutex_;
  std::string path_; // guarded by mutex_
};

// Makes a progress that of the calling thread for the life of this object, then
// restores the former one. The progress must outlive this object.
class Progress::Scope {
public:
  explicit Scope(Progress &progress);
  ~Scope();
  Scope(const Scope &) = delete;
  Scope &operator=(const Scope &) = delete;

private:
  Progress *const former_;
};

} // namespace NS
