// The flags of single items, and a walk that clears those of a whole tree.
#include "Foundation/Files/FileFlags.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Files/Internal/LossLog.h"
#include "Foundation/Files/POSIX/ItemCalls.h"
#include "Foundation/Files/POSIX/ItemLocation.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Walking/POSIX/FolderChain.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>

namespace NS {
namespace {

// One walk that clears flags on its way down.
class Unlocker {
public:
  Unlocker(const std::string &path, std::uint32_t mask, const FileFlags::FailureHandler &failed)
      : path_(path), mask_(mask), failed_(failed), log_(path) {}

  // Passes over items that it can no longer enter or read; the log tells only of
  // those for which this process lacked descriptors or memory. When the way back up
  // is lost, the walk goes on with the folders that it can reach. It ends early
  // when the request is cancelled.
  void run() {
    ItemLocation location;
    StepOutcome opened(TreeStep::Locate, locateItem(path_, location));
    if (opened.isDone())
      opened = chain_.openRoot(location.parent.get(), location.name.c_str());
    if (isExhaustion(opened.errnum()))
      tell("", opened);
    while (!chain_.empty() && !progress_.isCancelled()) {
      StepOutcome outcome;
      if (const FolderEntry *entry = chain_.next(outcome)) {
        if (unlock(entry->name))
          enter(entry->name);
      } else {
        if (outcome.isFailed())
          tell(chain_.pathBelowRoot(), outcome);
        leave();
      }
    }
  }

private:
  // On its way down the walk may release the buffer that holds the name.
  void enter(const std::string &name) {
    StepOutcome outcome = chain_.enter(name.c_str());
    if (isExhaustion(outcome.errnum()))
      tell(stringByAppendingPathComponent(chain_.pathBelowRoot(), name), outcome);
  }

  void leave() {
    if (chain_.leave().isFailed())
      static_cast<void>(chain_.findAgain([this](const std::string &below, const std::string &fate) {
        log_.tell(below, fate + rest);
      }));
  }

  void tell(const std::string &below, const StepOutcome &outcome) {
    log_.tell(below,
              "cannot be listed: " + std::generic_category().message(outcome.errnum()) + rest);
  }

  static constexpr const char *rest = "; the rest of it stays locked.";

  // Tells whether the item is a folder to descend into.
  bool unlock(const char *name) {
    ItemStatus status;
    int folder = chain_.folder();
    if (itemcalls::readStatus(folder, name, Links::Take, status) != 0)
      return false;
    Links links = S_ISLNK(status.mode) ? Links::Follow : Links::Take;
    if (links == Links::Follow && itemcalls::readStatus(folder, name, links, status) != 0)
      return false;
    if (status.flags & mask_)
      if (int error = itemcalls::clearFlags(folder, name, links, mask_))
        failed_(chain_.pathOf(path_, name), error);
    return links == Links::Take && S_ISDIR(status.mode);
  }

  const std::string &path_;
  std::uint32_t mask_;
  const FileFlags::FailureHandler &failed_;
  WalkShare share_;
  LossLog log_;
  Progress &progress_ = Progress::current();
  FolderChain chain_{{.mountPoints = MountPoints::Refuse, .keepsRoot = true}};
};

class RealFileFlags final : public FileFlags {
public:
  int status(const std::string &path, FileStatus &result) override {
    ItemStatus status;
    if (int error = read(path, status))
      return fail(error);
    result.flags = status.flags;
    result.birthTime = status.born.tv_sec;
    result.modificationTime = status.times[1].tv_sec;
    result.accessTime = status.times[0].tv_sec;
    return 0;
  }

  int clear(const std::string &path, std::uint32_t mask) override {
    ItemStatus status;
    if (read(path, status) != 0 || (status.flags & mask) == 0)
      return 0;
    int error = itemcalls::clearFlags(AT_FDCWD, path.c_str(), Links::Follow, mask);
    return error == 0 || error == ENOENT ? 0 : fail(error);
  }

  void clearBeneath(const std::string &path, std::uint32_t mask,
                    const FailureHandler &failed) override {
    Unlocker(path, mask, failed).run();
  }

private:
  // An empty path would mean an open item.
  static int read(const std::string &path, ItemStatus &status) {
    if (path.empty())
      return ENOENT;
    return holdsNul(path) ? EINVAL
                          : itemcalls::readStatus(AT_FDCWD, path.c_str(), Links::Follow, status);
  }
  static int fail(int error) {
    errno = error;
    return -1;
  }
};

} // namespace

FileFlags &FileFlags::real() {
  return lastingInstance<RealFileFlags>();
}

} // namespace NS
