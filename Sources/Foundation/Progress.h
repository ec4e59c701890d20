// How far the current request has come, and whether its requester wants no
// more of it.
//
// The request owns its progress. Walks count into that of their own thread and
// look whether it was cancelled; threads that help a walk make the walk's
// progress theirs. Thread-safe. Nothing here blocks for long or throws.
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
  // Longer paths are cut at the front, so that the item's own name stays.
  static constexpr std::size_t longestPath = 1024;

  struct Snapshot {
    std::uint64_t items = 0;
    std::uint64_t bytes = 0;
    std::string path; // as bytes; empty until a walk has answered wantsPath()
  };

  class Scope;

  // That of the calling thread. A thread without one gets one that counts
  // nothing and cannot be cancelled, so that no caller has to test for it.
  static Progress &current();

  Progress() = default;
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  // For good. Nothing is interrupted: walks stop before their next item.
  void cancel();
  bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

  // One item more was changed or measured, with so many bytes.
  void countItem(std::uint64_t bytes) {
    if (inert_)
      return;
    items_.fetch_add(1, std::memory_order_relaxed);
    bytes_.fetch_add(bytes, std::memory_order_relaxed);
  }

  // Whether a path was asked for since the last one was set. Walks ask before
  // they put one together, so that a progress that nobody watches costs nothing.
  bool wantsPath() const { return wantsPath_.load(std::memory_order_relaxed); }
  // Where the walk is. Without memory for it the former path stays.
  void setPath(std::string_view path);

  // The counts now and the path set last. Asks the walk for a new path. Without
  // memory for the path the snapshot has none.
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
// the former one again. The progress must live as long.
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
