// The BSD flags that Linux volumes know, read through statx and written through
// the inode flags. The owner's flag and the system's are the same here: either
// request sets it, and reading reports the system's.
#include "Foundation/Files/FileFlags.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"
#include "Foundation/Files/Linux/ItemLocation.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Walking/POSIX/FolderChain.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

namespace NS {
namespace {

constexpr unsigned statusMask = STATX_BASIC_STATS | STATX_BTIME;

std::uint32_t flagsOf(const struct statx &status) {
  std::uint32_t flags = 0;
  if (status.stx_attributes & STATX_ATTR_IMMUTABLE)
    flags |= SF_IMMUTABLE_FLAG;
  if (status.stx_attributes & STATX_ATTR_APPEND)
    flags |= SF_APPEND_FLAG;
  return flags;
}

int inodeFlagsOf(std::uint32_t flags) {
  int inodeFlags = 0;
  if (flags & (UF_IMMUTABLE_FLAG | SF_IMMUTABLE_FLAG))
    inodeFlags |= FS_IMMUTABLE_FL;
  if (flags & (UF_APPEND_FLAG | SF_APPEND_FLAG))
    inodeFlags |= FS_APPEND_FL;
  return inodeFlags;
}

// Clears flags by a handle that refers to an item without having opened it.
// Opens only an item that is a file or a folder with such a flag, so that it
// waits for no FIFO and wakes no device. Returns an errno value, 0 for success.
int clearFlags(int handle, std::uint32_t mask) {
  struct statx status;
  if (::statx(handle, "", AT_EMPTY_PATH, STATX_TYPE, &status) != 0)
    return errno;
  if ((flagsOf(status) & mask) == 0)
    return 0;
  if (!S_ISREG(status.stx_mode) && !S_ISDIR(status.stx_mode))
    return EOPNOTSUPP;
  Descriptor item(::open(handlePath(handle).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!item)
    return errno;
  int inodeFlags = 0;
  if (::ioctl(item.get(), FS_IOC_GETFLAGS, &inodeFlags) != 0)
    return errno == ENOTTY ? EOPNOTSUPP : errno;
  inodeFlags &= ~inodeFlagsOf(mask);
  return ::ioctl(item.get(), FS_IOC_SETFLAGS, &inodeFlags) == 0 ? 0 : errno;
}

// One walk that clears flags on its way down.
class Unlocker {
public:
  Unlocker(const std::string &path, std::uint32_t mask, const FileFlags::FailureHandler &failed)
      : path_(path), mask_(mask), failed_(failed) {}

  // Passes over items that it can no longer enter or read. When the way back up
  // is lost, the walk goes on with the folders that it can reach. It ends early
  // when the request is cancelled.
  void run() {
    ItemLocation location;
    if (locateItem(path_, location) != 0 ||
        chain_.openRoot(location.parent.get(), location.name.c_str()).isFailed())
      return;
    while (!chain_.empty() && !progress_.isCancelled()) {
      StepOutcome outcome;
      if (const FolderEntry *entry = chain_.next(outcome)) {
        if (unlock(entry->name))
          static_cast<void>(chain_.enter(entry->name));
      } else if (chain_.leave().isFailed()) {
        static_cast<void>(chain_.findAgain([this](const std::string &below) {
          Log("%@ was moved; the rest of it stays locked.",
              stringByAppendingPathComponent(path_, below));
        }));
      }
    }
  }

private:
  // Tells whether the item is a folder to descend into.
  bool unlock(const char *name) {
    struct statx status;
    int folder = chain_.folder();
    if (::statx(folder, name, AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) != 0)
      return false;
    bool isLink = S_ISLNK(status.stx_mode);
    if (isLink && ::statx(folder, name, 0, STATX_TYPE, &status) != 0)
      return false;
    if (flagsOf(status) & mask_) {
      Descriptor item(::openat(folder, name, O_PATH | O_CLOEXEC | (isLink ? 0 : O_NOFOLLOW)));
      if (int error = item ? clearFlags(item.get(), mask_) : errno; error != 0)
        failed_(chain_.pathOf(path_, name), error);
    }
    return !isLink && S_ISDIR(status.stx_mode);
  }

  const std::string &path_;
  std::uint32_t mask_;
  const FileFlags::FailureHandler &failed_;
  WalkShare share_;
  Progress &progress_ = Progress::current();
  FolderChain chain_{{.mountPoints = MountPoints::Refuse, .keepsRoot = true}};
};

class RealFileFlags final : public FileFlags {
public:
  int status(const std::string &path, FileStatus &result) override {
    if (holdsNul(path))
      return fail(EINVAL);
    struct statx status;
    if (::statx(AT_FDCWD, path.c_str(), 0, statusMask, &status) != 0)
      return -1;
    result.flags = flagsOf(status);
    result.birthTime = (status.stx_mask & STATX_BTIME) ? status.stx_btime.tv_sec : 0;
    result.modificationTime = status.stx_mtime.tv_sec;
    result.accessTime = status.stx_atime.tv_sec;
    return 0;
  }

  int clear(const std::string &path, std::uint32_t mask) override {
    if (holdsNul(path))
      return 0;
    Descriptor item(::open(path.c_str(), O_PATH | O_CLOEXEC));
    int error = item ? clearFlags(item.get(), mask) : 0;
    return error == 0 ? 0 : fail(error);
  }

  void clearBeneath(const std::string &path, std::uint32_t mask,
                    const FailureHandler &failed) override {
    Unlocker(path, mask, failed).run();
  }

private:
  static int fail(int error) {
    errno = error;
    return -1;
  }
};

using Shared = SharedInstance<FileFlags, RealFileFlags>;

} // namespace

FileFlags &FileFlags::shared() {
  return Shared::get();
}

FileFlags *FileFlags::exchangeShared(FileFlags *replacement) {
  return Shared::exchange(replacement);
}

} // namespace NS
