// Going down in the original and the copy, folder by folder.
//
// The walk looks at an item by its name, opens it through no link, and looks again
// at the open item. Another process may have exchanged it in between; then the
// walk begins again with the new item, a bounded number of times. It copies a file
// with several names once, and links the further names to that copy. To find the
// copy again, it gives it one more name in the staging area, made of the identity
// of the original (linkName). A folder gets its attributes when the walk leaves
// it, since each new item changes its times. For a move the walk records the state
// of each item from before it read the item's data.
#include "Foundation/Trees/POSIX/CopyWalk.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Trees/POSIX/CopiedItems.h"
#include "Foundation/Trees/POSIX/ItemCopy.h"
#include "Foundation/Walking/POSIX/FolderChain.h"
#include "Foundation/Walking/POSIX/FolderSharing.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <dirent.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace NS {
namespace {

// The number of times that a name may mean another item between two looks
// before the copy gives up: another process is working against it.
constexpr unsigned patience = 16;

// The name by which the walk finds the copy of a file with several names again.
// A new file may get the inode number of one that is gone, but hardly its size
// and time as well.
std::string linkName(const ItemStatus &status) {
  char name[128];
  std::snprintf(name, sizeof name, "%jx-%jx-%jx-%jx.%lx",
                static_cast<std::uintmax_t>(status.device),
                static_cast<std::uintmax_t>(status.inode), static_cast<std::uintmax_t>(status.size),
                static_cast<std::uintmax_t>(status.times[1].tv_sec), status.times[1].tv_nsec);
  return name;
}

// The state that the walks of one copy share.
struct SharedCopy {
  explicit SharedCopy(const CopyTask &whole) : task(whole) {
    static_cast<void>(readStatus(task.target.parent.get(), "", staging));
  }

  MountPoints mountPoints() const {
    return task.purpose == CopyPurpose::Move ? MountPoints::Refuse : MountPoints::Enter;
  }

  const CopyTask &task;
  ItemStatus staging;   // of the folder that is to hold the copy
  std::mutex noteMutex; // guards the record and the attributes left out
  LeftOut leftOut;
  std::mutex linksMutex; // guards the links, and is held while one is copied
  bool hasLinks = false; // whether a copy can be found again
  FolderSharing sharing; // last, so that its threads end before all else
};

// Where one walk begins.
struct CopyRoot {
  int sourceParent; // the folder that holds the original
  const std::string &name;
  const std::string &path; // of the original, for messages
  int targetParent;        // the folder that is to hold the copy
  const std::string &targetName;
};

class CopyWalk {
public:
  // The place is that of the thread that runs. The first walk shares folders out.
  CopyWalk(const CopyRoot &root, SharedCopy &copy, HelperPlace &place, bool isFirst)
      : root_(root), copy_(copy), place_(place), isFirst_(isFirst),
        source_({.mountPoints = copy.mountPoints(), .window = window(isFirst)}),
        target_({.mountPoints = MountPoints::Refuse, .window = window(isFirst)}) {}

  TreeResult run() {
    StepOutcome outcome = copyItem(root_.name.c_str(), root_.targetName.c_str());
    if (outcome.isFailed())
      return TreeFailure{outcome, TreeItem::Asked, root_.path};
    while (!source_.empty() && !copy_.sharing.isFailed()) {
      place_.begin();
      TreeResult failure = copyNext();
      place_.end();
      if (failure)
        return failure;
    }
    return {};
  }

private:
  // The crew's walks are many, and two chains each.
  static std::size_t window(bool isFirst) { return isFirst ? ChainRules().window : 3; }

  int sourceFolder() const { return source_.empty() ? root_.sourceParent : source_.folder(); }
  int targetFolder() const { return target_.empty() ? root_.targetParent : target_.folder(); }

  TreeResult copyNext() {
    StepOutcome outcome;
    const FolderEntry *entry = source_.next(outcome);
    if (!entry) {
      outcome = outcome.isFailed() ? outcome : finishFolder();
      return outcome.isFailed() ? failure(outcome, "") : TreeResult{};
    }
    if (isFirst_ && entry->type == DT_DIR && share(entry->name))
      return {};
    if (progress_.wantsPath())
      progress_.setPath(pathOf(entry->name));
    std::size_t depth = source_.depth();
    outcome = copyItem(entry->name, entry->name);
    // Another process removed a vanished item, or moved it away.
    if (outcome.isDone() || outcome.isMissing())
      return {};
    // On its way down the walk may give up the buffer that holds the name.
    return failure(outcome, source_.depth() > depth ? "" : entry->name);
  }

  bool share(const char *name) {
    if (copy_.mountPoints() != MountPoints::Refuse)
      return false;
    return copy_.sharing.share(
        source_, &target_, root_.path,
        [&copy = copy_, name = std::string(name)](const SharedFolder &above, HelperPlace &place) {
          std::string path = above.path + "/" + name;
          CopyRoot root{above.original.get(), name, path, above.copy.get(), name};
          return CopyWalk(root, copy, place, false).run();
        });
  }

  // When the name means another item after each look at it, the copy is of the
  // one that was met last.
  StepOutcome copyItem(const char *name, const char *targetName) {
    StepOutcome outcome;
    for (unsigned attempt = 0; attempt < patience; ++attempt) {
      if (progress_.isCancelled())
        return {TreeStep::Cancel, ECANCELED};
      outcome = copyWhatIsThere(name, targetName);
      if (!outcome.isExchanged())
        return outcome;
    }
    return outcome;
  }

  StepOutcome copyWhatIsThere(const char *name, const char *targetName) {
    ItemStatus status;
    if (StepOutcome outcome = readStatus(sourceFolder(), name, status); outcome.isFailed())
      return outcome;
    if (StepOutcome outcome = refusal(status); outcome.isFailed())
      return outcome;
    if (S_ISDIR(status.mode))
      return enterBoth(name, targetName);
    if (status.links > 1)
      return copyLinked(name, targetName, status);
    return copyPlain(name, targetName, status);
  }

  StepOutcome copyPlain(const char *name, const char *targetName, ItemStatus &status) {
    LeftOut leftOut;
    auto copy = S_ISREG(status.mode) ? copyFile : copyNode;
    StepOutcome outcome = copy(sourceFolder(), name, targetFolder(), targetName, status, leftOut);
    if (outcome.isFailed())
      return outcome;
    noteLeftOut(leftOut, name);
    progress_.countItem(S_ISREG(status.mode) ? static_cast<std::uint64_t>(status.size) : 0);
    return record(status);
  }

  // One at a time, so that no two names of a file are copied side by side.
  StepOutcome copyLinked(const char *name, const char *targetName, ItemStatus &status) {
    std::lock_guard lock(copy_.linksMutex);
    if (linkToCopy(status, targetName)) {
      progress_.countItem(0);
      return {};
    }
    StepOutcome outcome = copyPlain(name, targetName, status);
    if (outcome.isDone() && status.links > 1)
      rememberCopy(status, targetName);
    return outcome;
  }

  StepOutcome refusal(const ItemStatus &status) const {
    // The copy is within its original, which is mounted in two places.
    if (status.device == copy_.staging.device && status.inode == copy_.staging.inode)
      return {TreeStep::Check, EINVAL, TreeSide::Copy};
    if (copy_.task.purpose == CopyPurpose::Copy)
      return {};
    return {TreeStep::Check, status.isLocked() ? EPERM : status.isMountPoint ? EBUSY : 0};
  }

  StepOutcome record(const ItemStatus &status) {
    CopiedItems *record = copy_.task.record;
    std::lock_guard lock(copy_.noteMutex);
    return {TreeStep::Write, record ? record->add(status) : 0, TreeSide::Copy};
  }

  StepOutcome enterBoth(const char *name, const char *targetName) {
    // The name may be in a buffer that entering the source releases.
    std::string copyName = targetName;
    bool isRoot = source_.empty();
    StepOutcome outcome = isRoot ? source_.openRoot(root_.sourceParent, name) : source_.enter(name);
    // A folder that is its own ancestor through a mount is copied once, empty here.
    if (outcome.errnum() == EDEADLK)
      return makeFolder(copyName);
    if (outcome.errnum() == ENOTDIR || outcome.errnum() == ELOOP)
      return {TreeStep::Check, ESTALE};
    if (outcome.isFailed())
      return outcome;
    ItemStatus status; // of the very folder
    outcome = readStatus(source_.folder(), "", status);
    if (outcome.isDone())
      outcome = refusal(status);
    if (outcome.isDone())
      outcome = makeFolder(copyName);
    if (outcome.isFailed())
      return outcome;
    outcome = isRoot ? target_.openRoot(root_.targetParent, copyName.c_str())
                     : target_.enter(copyName.c_str());
    if (outcome.isFailed())
      return onCopy(outcome);
    statuses_.push_back(status);
    return record(status);
  }

  StepOutcome makeFolder(const std::string &name) {
    int error = ::mkdirat(targetFolder(), name.c_str(), S_IRWXU) == 0 ? 0 : errno;
    return {TreeStep::Write, error, TreeSide::Copy};
  }

  static StepOutcome onCopy(const StepOutcome &outcome) {
    return {outcome.step(), outcome.errnum(), TreeSide::Copy};
  }

  StepOutcome finishFolder() {
    if (isFirst_)
      copy_.sharing.finish(source_.depth());
    if (copy_.sharing.isFailed())
      return {};
    LeftOut leftOut;
    StepOutcome outcome =
        copyMetadata(source_.folder(), target_.folder(), statuses_.back(), leftOut);
    if (outcome.isFailed())
      return outcome;
    noteLeftOut(leftOut, "");
    statuses_.pop_back();
    progress_.countItem(0);
    if (outcome = target_.leave(); outcome.isFailed())
      return onCopy(outcome);
    return source_.leave();
  }

  // Gives the copy of another name of the same file this name too. False when no
  // other name was copied before, or the copy cannot be linked: the caller then
  // copies the file once more.
  bool linkToCopy(const ItemStatus &status, const char *targetName) {
    return copy_.hasLinks && ::linkat(copy_.task.staging.links(), linkName(status).c_str(),
                                      targetFolder(), targetName, 0) == 0;
  }

  // Gives the copy a further name in a folder of the staging area, by which
  // linkToCopy finds it. A record of paths would grow with the tree, and no path
  // leads to deep items.
  void rememberCopy(const ItemStatus &status, const char *targetName) {
    int links = copy_.task.staging.links();
    if (links < 0)
      return;
    std::string name = linkName(status);
    int result = ::linkat(targetFolder(), targetName, links, name.c_str(), 0);
    // A former copy that can have no more names gives way to this one.
    if (result != 0 && errno == EEXIST && ::unlinkat(links, name.c_str(), 0) == 0)
      result = ::linkat(targetFolder(), targetName, links, name.c_str(), 0);
    copy_.hasLinks = copy_.hasLinks || result == 0;
  }

  void noteLeftOut(const LeftOut &leftOut, const char *name) {
    if (leftOut.times == 0)
      return;
    std::lock_guard lock(copy_.noteMutex);
    if (copy_.leftOut.times == 0)
      copy_.leftOut = {0, leftOut.what + " of " + pathOf(name), leftOut.errnum};
    copy_.leftOut.times += leftOut.times;
  }

  std::string pathOf(const std::string &name) const {
    return source_.pathOf(root_.path, source_.empty() ? "" : name);
  }

  TreeResult failure(const StepOutcome &outcome, const std::string &name) const {
    return TreeFailure{outcome, TreeItem::Inner, pathOf(name)};
  }

  const CopyRoot root_;
  SharedCopy &copy_;
  HelperPlace &place_;
  const bool isFirst_;
  Progress &progress_ = Progress::current();
  FolderChain source_;
  FolderChain target_;
  std::vector<ItemStatus> statuses_; // of the folders that the walk is in
};

} // namespace

TreeResult copyWholeTree(const CopyTask &task, LeftOut &leftOut) {
  SharedCopy copy(task);
  CopyRoot root{task.source.parent.get(), task.source.name, task.srcPath, task.target.parent.get(),
                task.target.name};
  if (TreeResult failure = CopyWalk(root, copy, copy.sharing.own(), true).run())
    copy.sharing.fail(std::move(*failure));
  std::lock_guard lock(copy.noteMutex);
  leftOut = copy.leftOut;
  return copy.sharing.result();
}

} // namespace NS
