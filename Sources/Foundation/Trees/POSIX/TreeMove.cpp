// Moves an item: by a rename on one volume; across two by a complete copy, a
// check whether the original is unchanged, and its removal.
#include "Foundation/Trees/POSIX/TreeMove.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Trees/Internal/TreeRemoval.h"
#include "Foundation/Trees/POSIX/ItemCopy.h"
#include "Foundation/Walking/POSIX/FolderChain.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <initializer_list>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace NS {
namespace {

// Finds which of the two paths a refused rename concerns.
TreeResult failureOfRename(int error, const ItemLocation &source, const std::string &srcPath,
                           const std::string &dstPath) {
  ItemStatus status;
  StepOutcome look = readStatus(source.parent.get(), source.name.c_str(), status);
  if (look.isFailed())
    return TreeFailure{look, TreeItem::Asked, srcPath};
  switch (error) {
  case EEXIST:
  case EINVAL:
  case ENOENT:
  case ENOSPC:
  case EDQUOT:
  case EMLINK:
  case ENAMETOOLONG:
    return TreeFailure{{TreeStep::Place, error, TreeSide::Copy}, TreeItem::Asked, dstPath};
  default:
    return TreeFailure{{TreeStep::Place, error}, TreeItem::Asked, srcPath};
  }
}

bool isOnReadOnlyVolume(const ItemLocation &location) {
  struct statvfs volume;
  return ::fstatvfs(location.parent.get(), &volume) == 0 && (volume.f_flag & ST_RDONLY) != 0;
}

void syncFolder(const ItemLocation &location) {
  Descriptor folder(::openat(location.parent.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  static_cast<void>(::fsync(folder.get()));
}

constexpr StepOutcome notCopied{TreeStep::Compare, EBUSY};

// Tells whether the name means an item that was copied, in one of these
// likenesses. An item that another process removes changes before its name goes:
// it loses a link, and gets another time of change. So an item that seems to have
// changed gets a little time to vanish.
StepOutcome findCopied(const CopiedItems &copied, int folder, const char *name, ItemStatus &status,
                       std::initializer_list<CopiedItems::Likeness> likenesses) {
  constexpr int looks = 10;
  constexpr timespec pause{0, 1'000'000}; // a millisecond
  auto isCopied = [&](CopiedItems::Likeness likeness) { return copied.contains(status, likeness); };
  for (int look = 1;; ++look) {
    if (StepOutcome outcome = readStatus(folder, name, status); outcome.isFailed())
      return outcome;
    if (std::any_of(likenesses.begin(), likenesses.end(), isCopied))
      return {};
    if (look == looks)
      return notCopied;
    static_cast<void>(::nanosleep(&pause, nullptr));
  }
}

StepOutcome checkFolder(const CopiedItems &copied, int folder) {
  ItemStatus status;
  return findCopied(copied, folder, "", status, {CopiedItems::Likeness::Unchanged});
}

// Removes only copied items: compares each with the record just before its
// removal.
class CopiedItemsEraser final : public ItemEraser {
public:
  explicit CopiedItemsEraser(const CopiedItems &copied) : copied_(copied) {}

  StepOutcome erase(int folder, const char *name, unsigned char) override {
    // The change time of a file moves on when another of its names is removed.
    ItemStatus status;
    StepOutcome outcome =
        findCopied(copied_, folder, name, status,
                   {CopiedItems::Likeness::Unchanged, CopiedItems::Likeness::SameContent});
    if (outcome.isFailed())
      return outcome;
    return S_ISDIR(status.mode) ? StepOutcome{TreeStep::Remove, EISDIR} : unlinkItem(folder, name);
  }

  StepOutcome admit(int folder) override { return checkFolder(copied_, folder); }

  // The copy already counted these items.
  void countFolder() override {}

private:
  const CopiedItems &copied_;
};

// Checks, before any removal, whether the original is still the same as when it
// was copied.
class ChangeFinder {
public:
  ChangeFinder(const ItemLocation &source, const std::string &srcPath, const CopiedItems &copied)
      : source_(source), srcPath_(srcPath), copied_(copied) {}

  TreeResult run() {
    if (StepOutcome outcome = check(source_.parent.get(), source_.name.c_str()); outcome.isFailed())
      return TreeFailure{outcome, TreeItem::Asked, srcPath_};
    while (!chain_.empty()) {
      StepOutcome outcome;
      const FolderEntry *entry = chain_.next(outcome);
      std::string name = entry ? entry->name : "";
      if (entry)
        outcome = check(chain_.folder(), name.c_str());
      else if (outcome.isDone())
        outcome = chain_.leave();
      if (outcome.isFailed() && !outcome.isMissing())
        return TreeFailure{outcome, TreeItem::Inner, chain_.pathOf(srcPath_, name)};
    }
    return {};
  }

private:
  // Goes into folders.
  StepOutcome check(int folder, const char *name) {
    if (progress_.isCancelled())
      return {TreeStep::Cancel, ECANCELED};
    ItemStatus status;
    if (StepOutcome outcome =
            findCopied(copied_, folder, name, status, {CopiedItems::Likeness::Unchanged});
        outcome.isFailed())
      return outcome;
    if (!S_ISDIR(status.mode))
      return {};
    StepOutcome outcome = chain_.empty() ? chain_.openRoot(folder, name) : chain_.enter(name);
    return outcome.isDone() ? checkFolder(copied_, chain_.folder()) : outcome;
  }

  const ItemLocation &source_;
  const std::string &srcPath_;
  const CopiedItems &copied_;
  Progress &progress_ = Progress::current();
  FolderChain chain_{{.mountPoints = MountPoints::Refuse}};
};

// Checks before the copy for an obstacle that would only appear after it: a
// folder that holds the source and permits no removal.
StepOutcome checkRemovable(const ItemLocation &source) {
  if (isOnReadOnlyVolume(source))
    return {TreeStep::Check, EROFS};
  ItemStatus folder;
  StepOutcome outcome = readStatus(source.parent.get(), "", folder);
  if (outcome.isDone() && folder.isLocked())
    outcome = {TreeStep::Check, EPERM};
  return outcome;
}

TreeResult failureAt(const std::string &path, const StepOutcome &outcome) {
  return TreeFailure{outcome, TreeItem::Asked, path};
}

TreeResult moveAcross(const ItemLocation &source, const std::string &srcPath,
                      const ItemLocation &target, const std::string &dstPath) {
  MoveAcross move(source, srcPath, target, dstPath);
  TreeResult failure = move.copy();
  if (!failure)
    failure = move.place();
  if (!failure)
    failure = move.removeOriginal();
  if (failure && failure->outcome.step() == TreeStep::Compare)
    Log("%@ has changed since it was copied to %@, and stays", failure->path, dstPath);
  return failure;
}

} // namespace

TreeResult MoveAcross::copy() {
  if (StepOutcome outcome = checkRemovable(source_); outcome.isFailed())
    return failureAt(srcPath_, outcome);
  TreeResult failure = copy_.build(&copied_);
  copied_.finish();
  return failure;
}

TreeResult MoveAcross::place() {
  TreeResult failure = ChangeFinder(source_, srcPath_, copied_).run();
  if (!failure)
    failure = copy_.place();
  if (!failure)
    syncFolder(target_);
  return failure;
}

TreeResult MoveAcross::removeOriginal() {
  CopiedItemsEraser eraser(copied_);
  TreeResult failure = eraseTree(source_, srcPath_, eraser);
  // Another process removed it meanwhile, or moved it away.
  return failure && failure->isGone() ? TreeResult{} : failure;
}

TreeResult moveTree(const std::string &srcPath, const std::string &dstPath) {
  ItemLocation source, target;
  if (Progress::current().isCancelled())
    return failureAt(srcPath, {TreeStep::Cancel, ECANCELED});
  if (int error = locateItem(srcPath, source))
    return failureAt(srcPath, {TreeStep::Locate, error});
  if (int error = locateItem(dstPath, target))
    return failureAt(dstPath, {TreeStep::Locate, error, TreeSide::Copy});
  int error = renameWithoutReplacing(source, target);
  if (error == EXDEV)
    return moveAcross(source, srcPath, target, dstPath);
  if (error != 0)
    return failureOfRename(error, source, srcPath, dstPath);
  Progress::current().countItem(0);
  return {};
}

} // namespace NS
