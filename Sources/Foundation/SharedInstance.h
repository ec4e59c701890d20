// Gives a seam class a process-wide instance that a test can replace for a
// while. All seam classes use it.
//
// A seam class T declares `static T &shared()` (or the platform's own name for
// it) and `static T *exchangeShared(T *replacement)`, and implements both with
// one SharedInstance<T>. Reading is lock-free and thread-safe; a replacement
// must outlive every use of it.
#pragma once

#include <atomic>

namespace NS {

template <typename Seam> class SharedInstance {
public:
  // The real instance lives as long as the process.
  explicit SharedInstance(Seam &real) : real_(real) {}

  Seam &get() const {
    Seam *replacement = replacement_.load(std::memory_order_acquire);
    return replacement ? *replacement : real_;
  }
  // Returns the replacement that was in force, null for the real instance.
  Seam *exchange(Seam *replacement) {
    return replacement_.exchange(replacement, std::memory_order_acq_rel);
  }

private:
  Seam &real_;
  std::atomic<Seam *> replacement_{nullptr};
};

// Replaces a seam's shared instance for the life of this object. Two threads
// must not use it at once for one seam.
template <typename Seam> class ScopedOverride {
public:
  explicit ScopedOverride(Seam &replacement) : previous_(Seam::exchangeShared(&replacement)) {}
  ~ScopedOverride() { Seam::exchangeShared(previous_); }
  ScopedOverride(const ScopedOverride &) = delete;
  ScopedOverride &operator=(const ScopedOverride &) = delete;

private:
  Seam *previous_;
};

} // namespace NS
