// Two walks side by side: one reads the original, the other stands in the
// folder of the copy that corresponds to it.
#include "Foundation/Linux/TreeCopy.h"

#include "Foundation/Linux/CopiedItems.h"
#include "Foundation/Linux/ItemCopy.h"
#include "Foundation/POSIX/FolderChain.h"
#include "Foundation/Progress.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace NS {
namespace {

// How often a name may mean another item between two looks at it before the
// copy gives up: somebody is working against it.
constexpr unsigned patience = 16;

// By which a copy of a file with several names is found again. Another file may
// bear the number of one that is gone, but hardly its size and time as well.
std::string linkName(const ItemStatus &status) {
  char name[128];
  std::snprintf(name, sizeof name, "%jx-%jx-%jx-%jx.%lx",
                static_cast<std::uintmax_t>(status.device),
                static_cast<std::uintmax_t>(status.inode), static_cast<std::uintmax_t>(status.size),
                static_cast<std::uintmax_t>(status.times[1].tv_sec), status.times[1].tv_nsec);
  return name;
}

class TreeCopier {
public:
  // The record may be null.
  TreeCopier(const ItemLocation &source, const std::string &srcPath, const ItemLocation &target,
             Staging &staging, CopyPurpose purpose, CopiedItems *record)
      : sourceRoot_(source), srcPath_(srcPath), targetRoot_(target), staging_(staging),
        purpose_(purpose), record_(record),
        source_({.mountPoints =
                     purpose == CopyPurpose::Move ? MountPoints::Refuse : MountPoints::Enter}) {}

  TreeResult run() {
    StepOutcome outcome = copyItem(sourceRoot_.name.c_str(), targetRoot_.name.c_str());
    if (outcome.isFailed())
      return TreeFailure{outcome, TreeItem::Asked, srcPath_};
    while (!source_.empty())
      if (TreeResult failure = copyNext())
        return failure;
    return {};
  }

  const LeftOut &leftOut() const { return leftOut_; }

private:
  int sourceFolder() const { return source_.empty() ? sourceRoot_.parent.get() : source_.folder(); }
  int targetFolder() const { return target_.empty() ? targetRoot_.parent.get() : target_.folder(); }

  TreeResult copyNext() {
    StepOutcome outcome;
    const FolderEntry *entry = source_.next(outcome);
    if (!entry) {
      outcome = outcome.isFailed() ? outcome : finishFolder();
      return outcome.isFailed() ? failure(outcome, "") : TreeResult{};
    }
    if (progress_.wantsPath())
      progress_.setPath(pathOf(entry->name));
    std::size_t depth = source_.depth();
    outcome = copyItem(entry->name, entry->name);
    // What vanishes meanwhile was removed or moved away by somebody else.
    if (outcome.isDone() || outcome.isMissing())
      return {};
    // On its way down the walk may give up the buffer that holds the name.
    return failure(outcome, source_.depth() > depth ? "" : entry->name);
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
    if (status.links > 1 && linkToCopy(status, targetName)) {
      progress_.countItem(0);
      return {};
    }
    std::uint64_t omissions = leftOut_.times;
    auto copy = S_ISREG(status.mode) ? copyFile : copyNode;
    StepOutcome outcome = copy(sourceFolder(), name, targetFolder(), targetName, status, leftOut_);
    if (outcome.isFailed())
      return outcome;
    nameOmission(omissions, name);
    if (status.links > 1)
      rememberCopy(status, targetName);
    progress_.countItem(S_ISREG(status.mode) ? static_cast<std::uint64_t>(status.size) : 0);
    return record(status);
  }

  StepOutcome refusal(const ItemStatus &status) const {
    if (purpose_ == CopyPurpose::Copy)
      return {};
    return {TreeStep::Check, status.isLocked() ? EPERM : status.isMountPoint ? EBUSY : 0};
  }

  StepOutcome record(const ItemStatus &status) {
    return {TreeStep::Write, record_ ? record_->add(status) : 0, TreeSide::Copy};
  }

  StepOutcome enterBoth(const char *name, const char *targetName) {
    // The name may stand in a buffer that entering the source gives up.
    std::string copyName = targetName;
    bool isRoot = source_.empty();
    StepOutcome outcome =
        isRoot ? source_.openRoot(sourceRoot_.parent.get(), name) : source_.enter(name);
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
    outcome = isRoot ? target_.openRoot(targetRoot_.parent.get(), copyName.c_str())
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
    std::uint64_t omissions = leftOut_.times;
    StepOutcome outcome =
        copyMetadata(source_.folder(), target_.folder(), statuses_.back(), leftOut_);
    if (outcome.isFailed())
      return outcome;
    nameOmission(omissions, "");
    statuses_.pop_back();
    progress_.countItem(0);
    if (outcome = target_.leave(); outcome.isFailed())
      return onCopy(outcome);
    return source_.leave();
  }

  // Whether another name of the same file was copied before and its copy now
  // has this name too. Where it cannot be linked the file is copied once more.
  bool linkToCopy(const ItemStatus &status, const char *targetName) {
    return hasLinks_ &&
           ::linkat(staging_.links(), linkName(status).c_str(), targetFolder(), targetName, 0) == 0;
  }

  // The copy gets one more name, by which it is found again, until all is
  // copied: a record of paths would grow with the tree, and no path leads to
  // what lies deep.
  void rememberCopy(const ItemStatus &status, const char *targetName) {
    int links = staging_.links();
    if (links < 0)
      return;
    std::string name = linkName(status);
    int result = ::linkat(targetFolder(), targetName, links, name.c_str(), 0);
    // A copy that can have no more names gives way to the next one.
    if (result != 0 && errno == EEXIST && ::unlinkat(links, name.c_str(), 0) == 0)
      result = ::linkat(targetFolder(), targetName, links, name.c_str(), 0);
    hasLinks_ = hasLinks_ || result == 0;
  }

  void nameOmission(std::uint64_t before, const char *name) {
    if (before == 0 && leftOut_.times > 0)
      leftOut_.what += " of " + pathOf(name);
  }

  std::string pathOf(const std::string &name) const {
    return source_.pathOf(srcPath_, source_.empty() ? "" : name);
  }

  TreeResult failure(const StepOutcome &outcome, const std::string &name) const {
    return TreeFailure{outcome, TreeItem::Inner, pathOf(name)};
  }

  const ItemLocation &sourceRoot_;
  const std::string &srcPath_;
  const ItemLocation &targetRoot_;
  Staging &staging_;
  CopyPurpose purpose_;
  CopiedItems *record_;
  Progress &progress_ = Progress::current();
  FolderChain source_;
  FolderChain target_{{.mountPoints = MountPoints::Refuse}};
  std::vector<ItemStatus> statuses_; // of the folders that the walk is in
  bool hasLinks_ = false;            // whether a copy can be found again
  LeftOut leftOut_;
};

bool exists(const ItemLocation &location) {
  return ::faccessat(location.parent.get(), location.name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

// Whether the folder is, or lies in, the item.
bool liesWithin(int folder, const ItemStatus &item) {
  Descriptor current(::openat(folder, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  ItemStatus here, above;
  if (!current || readStatus(current.get(), "", here).isFailed())
    return false;
  while (here.device != item.device || here.inode != item.inode) {
    Descriptor next(::openat(current.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!next || readStatus(next.get(), "", above).isFailed())
      return false;
    if (above.device == here.device && above.inode == here.inode)
      return false;
    current = std::move(next);
    here = above;
  }
  return true;
}

// A file's own data, or for a folder all that its volume has not written yet:
// far cheaper than file by file.
int syncItem(const ItemLocation &location) {
  ItemStatus status;
  if (StepOutcome outcome = readStatus(location.parent.get(), location.name.c_str(), status);
      outcome.isFailed())
    return outcome.errnum();
  if (!S_ISREG(status.mode) && !S_ISDIR(status.mode))
    return 0;
  Descriptor item(::openat(location.parent.get(), location.name.c_str(),
                           O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!item)
    return errno;
  int result = S_ISDIR(status.mode) ? ::syncfs(item.get()) : ::fsync(item.get());
  return result == 0 ? 0 : errno;
}

} // namespace

TreeResult StagedCopy::failureAtTarget(TreeStep step, int error) const {
  return TreeFailure{{step, error, TreeSide::Copy}, TreeItem::Asked, dstPath_};
}

// Refuses what cannot become a copy, and makes the folder to build it in.
TreeResult StagedCopy::prepare() {
  ItemStatus status;
  StepOutcome outcome = readStatus(source_.parent.get(), source_.name.c_str(), status);
  if (outcome.isFailed())
    return TreeFailure{outcome, TreeItem::Asked, srcPath_};
  if (exists(target_))
    return failureAtTarget(TreeStep::Check, EEXIST);
  if (S_ISDIR(status.mode) && liesWithin(target_.parent.get(), status))
    return failureAtTarget(TreeStep::Check, EINVAL);
  outcome = staging_.open(target_.parent.get());
  if (outcome.isFailed())
    return TreeFailure{outcome, TreeItem::Asked, dstPath_};
  unfinished_ = {Descriptor(::fcntl(staging_.folder(), F_DUPFD_CLOEXEC, 0)), Staging::itemName};
  return unfinished_.parent ? TreeResult{} : failureAtTarget(TreeStep::Write, errno);
}

TreeResult StagedCopy::build(CopiedItems *record) {
  if (TreeResult failure = prepare())
    return failure;
  if (record)
    record->spillInto(staging_.folder());
  TreeCopier copier(source_, srcPath_, unfinished_, staging_, purpose_, record);
  if (TreeResult failure = copier.run())
    return failure;
  staging_.dropLinks();
  copier.leftOut().report(dstPath_);
  int error = purpose_ == CopyPurpose::Move ? syncItem(unfinished_) : 0;
  return error == 0 ? TreeResult{} : failureAtTarget(TreeStep::Sync, error);
}

TreeResult StagedCopy::place() {
  int error = renameWithoutReplacing(unfinished_, target_);
  return error == 0 ? TreeResult{} : failureAtTarget(TreeStep::Place, error);
}

int renameWithoutReplacing(const ItemLocation &source, const ItemLocation &target) {
  int from = source.parent.get(), to = target.parent.get();
  const char *name = source.name.c_str(), *newName = target.name.c_str();
  if (::renameat2(from, name, to, newName, RENAME_NOREPLACE) == 0)
    return 0;
  // EINVAL is also the answer to a folder moved into itself, which the plain
  // rename below gives again.
  if (errno != EINVAL && errno != ENOSYS)
    return errno;
  ItemStatus status;
  if (StepOutcome outcome = readStatus(from, name, status); outcome.isFailed())
    return outcome.errnum();
  if (!S_ISDIR(status.mode) && ::linkat(from, name, to, newName, 0) == 0)
    return ::unlinkat(from, name, 0) == 0 ? 0 : errno;
  if (exists(target))
    return EEXIST;
  return ::renameat(from, name, to, newName) == 0 ? 0 : errno;
}

TreeResult copyTree(const std::string &srcPath, const std::string &dstPath) {
  ItemLocation source, target;
  if (int error = locateItem(srcPath, source))
    return TreeFailure{{TreeStep::Locate, error}, TreeItem::Asked, srcPath};
  if (int error = locateItem(dstPath, target))
    return TreeFailure{{TreeStep::Locate, error, TreeSide::Copy}, TreeItem::Asked, dstPath};
  StagedCopy copy(source, srcPath, target, dstPath, CopyPurpose::Copy);
  if (TreeResult failure = copy.build(nullptr))
    return failure;
  return copy.place();
}

} // namespace NS
