// Gives a seam class a process-wide instance that a test can replace for a
// while. All seam classes use it.
//
// A seam class T declares `static T &shared()` (or the platform's own name for
// it) and `static T *exchangeShared(T *replacement)`. Its body names the class of
// the real instance in `using Shared = SharedInstance<T, Real>` and implements
// both with that. Reading is lock-free and thread-safe; a replacement must outlive
// every use of it.
#pragma once

#include <atomic>

namespace NS {

template <typename Seam, typename Real> class SharedInstance {
public:
  static Seam &get() {
    Seam *replacement = replacement_.load(std::memory_order_acquire);
    return replacement ? *replacement : real();
  }
  // Returns the replacement that was in force, null for the real instance.
  static Seam *exchange(Seam *replacement) {
    return replacement_.exchange(replacement, std::memory_order_acq_rel);
  }

private:
  // Made at its first use and never destroyed: any thread may end the process
  // while others still use the instance.
  static Real &real() {
    static auto *const instance = new Real;
    return *instance;
  }

  static inline std::atomic<Seam *> replacement_{nullptr};
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
