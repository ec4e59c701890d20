// Sets and reads an item's immutable and append-only flags by the host's own
// means, and clears them all at the end so that the item can be cleaned up.
// Where that is not to be had, a test skips.
#pragma once

#include <fcntl.h>
#include <linux/fs.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kwtest {

// The inode flags, -1 where there are none.
inline int inodeFlags(const std::string &path) {
  int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  int flags = 0;
  if (descriptor < 0 || ::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) != 0)
    flags = -1;
  if (descriptor >= 0)
    ::close(descriptor);
  return flags;
}

inline bool setInodeFlags(const std::string &path, int flags) {
  int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  bool set = descriptor >= 0 && ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags) == 0;
  if (descriptor >= 0)
    ::close(descriptor);
  return set;
}

class LockedItem {
public:
  explicit LockedItem(std::string path, int flags = FS_IMMUTABLE_FL) : path_(std::move(path)) {
    int before = inodeFlags(path_);
    locked_ = before >= 0 && setInodeFlags(path_, before | flags);
  }
  ~LockedItem() {
    int now = inodeFlags(path_);
    if (now >= 0)
      setInodeFlags(path_, now & ~(FS_IMMUTABLE_FL | FS_APPEND_FL));
  }
  LockedItem(const LockedItem &) = delete;
  LockedItem &operator=(const LockedItem &) = delete;

  // Only root can lock, and only where the volume knows the flags.
  bool isLocked() const { return locked_; }

private:
  std::string path_;
  bool locked_ = false;
};

// Locks an item that changes its place: by a descriptor of it.
class HeldLock {
public:
  explicit HeldLock(const std::string &path)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {}
  ~HeldLock() {
    set(0);
    if (descriptor_ >= 0)
      ::close(descriptor_);
  }
  HeldLock(const HeldLock &) = delete;
  HeldLock &operator=(const HeldLock &) = delete;

  bool lock() const { return set(FS_IMMUTABLE_FL); }

private:
  bool set(int wanted) const {
    int flags = 0;
    if (descriptor_ < 0 || ::ioctl(descriptor_, FS_IOC_GETFLAGS, &flags) != 0)
      return false;
    flags = (flags & ~FS_IMMUTABLE_FL) | wanted;
    return ::ioctl(descriptor_, FS_IOC_SETFLAGS, &flags) == 0;
  }

  int descriptor_;
};

} // namespace kwtest

// For tests that cannot go on without the lock.
#define KW_REQUIRE_LOCKED(item)                                                                    \
  if (!(item).isLocked())                                                                          \
  GTEST_SKIP() << "needs root and a volume with immutable flags"
