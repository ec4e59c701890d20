// CoreFoundation's values as ours, and the other way round.
#pragma once

#include "Foundation/Base/Object.h"
#include "Foundation/Values/macOS/Platform/CoreServices.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

extern "C" {
void *objc_autoreleasePoolPush(void);
void objc_autoreleasePoolPop(void *pool);
}

namespace NS {

// Releases the objects that the platform's calls put into the current pool: the
// threads that make these calls have no pool of their own.
class AutoreleasePool {
public:
  AutoreleasePool() : pool_(::objc_autoreleasePoolPush()) {}
  ~AutoreleasePool() { ::objc_autoreleasePoolPop(pool_); }
  AutoreleasePool(const AutoreleasePool &) = delete;
  AutoreleasePool &operator=(const AutoreleasePool &) = delete;

private:
  void *pool_;
};

// A reference that the platform gave away, released at the end; empty for null.
template <typename Reference> class Owned {
public:
  explicit Owned(Reference reference = nullptr) : reference_(reference) {}
  Owned(Owned &&other) noexcept : reference_(std::exchange(other.reference_, nullptr)) {}
  Owned &operator=(Owned &&other) noexcept {
    std::swap(reference_, other.reference_);
    return *this;
  }
  ~Owned() {
    if (reference_)
      ::CFRelease(reference_);
  }
  // Adds a reference to an object that has another owner.
  static Owned sharing(Reference reference) {
    if (reference)
      ::CFRetain(reference);
    return Owned(reference);
  }

  Reference get() const { return reference_; }
  explicit operator bool() const { return reference_ != nullptr; }

private:
  Reference reference_;
};

// Empty for text that is not well-formed UTF-8.
Owned<CFStringRef> platformString(const std::string &text);
// Nothing for null, and for text that UTF-8 cannot express.
std::optional<std::string> textOf(CFStringRef string);

// The file URL of the path, which may have any bytes but NUL; else empty.
Owned<CFURLRef> platformURL(const std::string &path, bool isDirectory);
// The POSIX path of a file URL.
std::optional<std::string> pathOf(CFURLRef url);

// Numbers, truth values, dates and strings as ours, any other value as the null
// object; null for null.
std::shared_ptr<Object> objectOf(CFTypeRef value);

} // namespace NS
