// Gives a seam class, an interface to the platform, one instance for the whole
// process, which a test can replace for a while.
//
// A seam class derives from SharedInstance<Itself> and declares
// `static Itself &real()`. Its body defines that as the lasting instance of its
// real class. Reading is lock-free and thread-safe; a replacement must outlive
// every use of it.
#pragma once

#include <atomic>

namespace NS {

template <typename Seam> class SharedInstance {
public:
  static Seam &shared() {
    Seam *replacement = replacement_.load(std::memory_order_acquire);
    return replacement ? *replacement : Seam::real();
  }
  // Returns the replacement that was in force, null for the real instance.
  static Seam *exchangeShared(Seam *replacement) {
    return replacement_.exchange(replacement, std::memory_order_acq_rel);
  }

private:
  static inline std::atomic<Seam *> replacement_{nullptr};
};

// The process's one instance of the class. Made at its first use and never
// destroyed: any thread may end the process while others still use it.
template <typename Real> Real &lastingInstance() {
  static auto *const instance = new Real;
  return *instance;
}

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
