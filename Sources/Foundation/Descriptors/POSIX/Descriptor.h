// Sole ownership of one descriptor. Internal to Foundation.
#pragma once

#include <unistd.h>
#include <utility>

namespace NS {

class Descriptor {
public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }

  int get() const { return fd_; }
  // The caller owns it from now on.
  int release() { return std::exchange(fd_, -1); }
  explicit operator bool() const { return fd_ >= 0; }
  void reset() {
    // No writer through these descriptors relies on close to report a failure:
    // data that must reach the disk is synced before.
    if (fd_ >= 0)
      static_cast<void>(::close(std::exchange(fd_, -1)));
  }

private:
  int fd_ = -1;
};

} // namespace NS
