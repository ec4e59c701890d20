// The descriptors of the walk: which it holds, gives up and finds again.
#include "Foundation/Linux/HierarchyStream.h"

#include <algorithm>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

bool readID(int descriptor, FolderID &id) {
  struct stat status;
  if (::fstat(descriptor, &status) != 0)
    return false;
  id = {status.st_dev, status.st_ino};
  return true;
}

} // namespace

void HierarchyStream::forgetUnread(Frame &frame) {
  if (frame.cursor == frame.end)
    return;
  frame.cursor = frame.end = frame.base;
  frame.atEnd = false;
  frame.reseek = true;
}

bool HierarchyStream::giveUpOldest() {
  if (firstHeld_ + 2 > depth_ - 1)
    return false;
  Frame &frame = frames_[firstHeld_];
  ++firstHeld_;
  if (frame.descriptor < 0)
    return true;
  // Without an identity it could not be recognised, and is lost on return.
  if (!readID(frame.descriptor, frame.id))
    frame.id = {};
  ::close(frame.descriptor);
  frame.descriptor = -1;
  frame.reseek = true;
  return true;
}

int HierarchyStream::openWithin(int folder, const char *name, int flags) {
  for (;;) {
    int descriptor = ::openat(folder, name, flags);
    if (descriptor >= 0 || !isExhaustion(errno))
      return descriptor;
    int errnum = errno;
    if (!retreat() && !giveUpOldest() && !patience_.outlasts(errnum)) {
      errno = errnum;
      return -1;
    }
  }
}

void HierarchyStream::restore(std::size_t index, int child) {
  Frame &frame = frames_[index];
  int descriptor = child >= 0 ? ::openat(child, "..", folderFlags) : -1;
  FolderID id{};
  bool found = descriptor >= 0 && readID(descriptor, id) && id == frame.id;
  if (!found) {
    if (descriptor >= 0)
      ::close(descriptor);
    descriptor = openFromRoot(index);
    while (descriptor < 0 && patience_.outlasts(errno))
      descriptor = openFromRoot(index);
  }
  firstHeld_ = index;
  frame.descriptor = descriptor;
  if (descriptor >= 0)
    return;
  frame.entry.errnum = errno;
  frame.cursor = frame.end = frame.base;
  frame.atEnd = true;
}

// For folders that were read ahead. False, with errno set, when it is lost.
bool HierarchyStream::reopen(std::size_t index) {
  int descriptor = openFromRoot(index);
  while (descriptor < 0 && isExhaustion(errno)) {
    int errnum = errno;
    if (!retreat() && !giveUpOldest() && !patience_.outlasts(errnum)) {
      errno = errnum;
      break;
    }
    descriptor = openFromRoot(index);
  }
  frames_[index].descriptor = descriptor;
  if (descriptor < 0)
    return false;
  firstHeld_ = std::min(firstHeld_, index);
  return true;
}

int HierarchyStream::openFromRoot(std::size_t index) {
  int descriptor = -1;
  for (std::size_t at = 1; at <= index; ++at) {
    std::string name(frames_[at].entry.name);
    int flags = at == index ? folderFlags : O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    int next = ::openat(at == 1 ? frames_[0].descriptor : descriptor, name.c_str(), flags);
    int errnum = errno;
    if (descriptor >= 0)
      ::close(descriptor);
    errno = errnum;
    if (next < 0)
      return -1;
    descriptor = next;
  }
  FolderID id{};
  if (readID(descriptor, id) && id == frames_[index].id)
    return descriptor;
  ::close(descriptor);
  errno = ENOENT;
  return -1;
}

} // namespace NS
