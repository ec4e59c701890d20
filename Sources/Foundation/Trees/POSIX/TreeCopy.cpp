// A copy from its beginning to its place.
#include "Foundation/Trees/POSIX/TreeCopy.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Trees/POSIX/CopiedItems.h"
#include "Foundation/Trees/POSIX/CopyCalls.h"
#include "Foundation/Trees/POSIX/CopyWalk.h"
#include "Foundation/Trees/POSIX/ItemCopy.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

bool exists(const ItemLocation &location) {
  ItemStatus status;
  return readStatus(location.parent.get(), location.name.c_str(), status).isDone();
}

// Makes an empty item of that name for a rename to replace: so the rename never
// replaces an item of others. Returns 0 or an errno value, EEXIST for such an
// item.
int makePlaceholder(int folder, const char *name, bool isFolder) {
  if (isFolder)
    return ::mkdirat(folder, name, S_IRWXU) == 0 ? 0 : errno;
  Descriptor file(
      ::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  return file ? 0 : errno;
}

// Tells whether the folder is the item or within it. A look without a descriptor
// fails, too.
bool liesWithin(int folder, const ItemStatus &item) {
  Descriptor current(::openat(folder, ".", itemcalls::placeFlags));
  ItemStatus here, above;
  if (readStatus(current.get(), "", here).isFailed())
    return false;
  while (here.device != item.device || here.inode != item.inode) {
    Descriptor next(::openat(current.get(), "..", itemcalls::placeFlags));
    if (readStatus(next.get(), "", above).isFailed())
      return false;
    if (above.device == here.device && above.inode == here.inode)
      return false;
    current = std::move(next);
    here = above;
  }
  return true;
}

// Syncs a file's own data, or for a folder all data that its volume has not
// written yet: far cheaper than file by file.
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
  return S_ISDIR(status.mode) ? copycalls::syncVolume(item.get()) : copycalls::syncFile(item.get());
}

} // namespace

TreeResult StagedCopy::failureAtTarget(TreeStep step, int error) const {
  return TreeFailure{{step, error, TreeSide::Copy}, TreeItem::Asked, dstPath_};
}

// Refuses items that cannot be copied, and makes the folder for the copy.
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
  LeftOut leftOut;
  if (TreeResult failure =
          copyWholeTree({source_, srcPath_, unfinished_, staging_, purpose_, record}, leftOut))
    return failure;
  staging_.dropLinks();
  leftOut.report(dstPath_);
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
  if (int error = itemcalls::renameExclusively(from, name, to, newName); error != ENOTSUP)
    return error;
  ItemStatus status;
  if (StepOutcome outcome = readStatus(from, name, status); outcome.isFailed())
    return outcome.errnum();
  bool isFolder = S_ISDIR(status.mode);
  if (!isFolder && ::linkat(from, name, to, newName, 0) == 0)
    return ::unlinkat(from, name, 0) == 0 ? 0 : errno;
  if (int error = makePlaceholder(to, newName, isFolder))
    return error;
  if (::renameat(from, name, to, newName) == 0)
    return 0;
  int error = errno;
  static_cast<void>(::unlinkat(to, newName, isFolder ? AT_REMOVEDIR : 0));
  return error;
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
