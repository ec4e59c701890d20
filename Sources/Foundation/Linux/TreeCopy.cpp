// Two walks side by side: one reads the original, the other stands in the
// folder of the copy that corresponds to it.
#include "Foundation/Linux/TreeCopy.h"

#include "Foundation/Linux/FolderStack.h"
#include "Foundation/Linux/ItemCopy.h"
#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/Linux/Staging.h"
#include "Foundation/Linux/TreeRemoval.h"

#include <cerrno>
#include <fcntl.h>
#include <map>
#include <unistd.h>
#include <utility>
#include <vector>

namespace NS {
namespace {

// Files with several names are linked together again in the copy as long as
// the record of them stays small; more of them become files of their own.
constexpr std::size_t mostLinkedFiles = 100'000;

class TreeCopier {
public:
  TreeCopier(const ItemLocation &source, const std::string &srcPath, const ItemLocation &target,
             CopyPurpose purpose)
      : sourceRoot_(source), srcPath_(srcPath), targetRoot_(target), purpose_(purpose),
        source_(purpose == CopyPurpose::Move ? MountPoints::Refuse : MountPoints::Enter) {}

  TreeResult run() {
    if (int error = copyItem(sourceRoot_.name.c_str(), targetRoot_.name.c_str()))
      return TreeFailure{error, srcPath_, access_};
    while (!source_.empty()) {
      int error = 0;
      if (const FolderEntry *entry = source_.next(error)) {
        error = copyItem(entry->name, entry->name);
        // What vanishes meanwhile was removed by its owner.
        if (error != 0 && (error != ENOENT || access_ != FileAccess::Reading))
          return failure(error, entry->name);
      } else if (error != 0 || (error = finishFolder()) != 0) {
        return failure(error, "");
      }
    }
    return {};
  }

private:
  int sourceFolder() const { return source_.empty() ? sourceRoot_.parent.get() : source_.folder(); }
  int targetFolder() const { return target_.empty() ? targetRoot_.parent.get() : target_.folder(); }

  int copyItem(const char *name, const char *targetName) {
    ItemStatus status;
    access_ = FileAccess::Reading;
    if (int error = readStatus(sourceFolder(), name, status))
      return error;
    access_ = FileAccess::Writing;
    if (int error = refusal(status))
      return error;
    if (S_ISDIR(status.mode))
      return enterBoth(name, targetName, status);
    if (status.links > 1 && linkToCopy(status, targetName))
      return 0;
    int error = S_ISREG(status.mode)
                    ? copyFile(sourceFolder(), name, targetFolder(), targetName, status)
                    : copyNode(sourceFolder(), name, targetFolder(), targetName, status);
    if (error == 0 && status.links > 1)
      rememberCopy(status, targetName);
    return error;
  }

  int refusal(const ItemStatus &status) const {
    if (purpose_ == CopyPurpose::Copy)
      return 0;
    return status.isLocked ? EPERM : status.isMountPoint ? EBUSY : 0;
  }

  int enterBoth(const char *name, const char *targetName, const ItemStatus &status) {
    // The name may stand in a buffer that entering the source gives up.
    std::string copyName = targetName;
    if (::mkdirat(targetFolder(), targetName, S_IRWXU) != 0)
      return errno;
    bool isRoot = source_.empty();
    if (int error = isRoot ? target_.openRoot(targetRoot_.parent.get(), targetName)
                           : target_.enter(targetName))
      return error;
    access_ = FileAccess::Reading;
    int error = isRoot ? source_.openRoot(sourceRoot_.parent.get(), name) : source_.enter(name);
    // A folder that is its own ancestor through a mount is copied once, empty here.
    if (error == EDEADLK)
      return target_.leave();
    if (error != 0)
      return error == ENOENT ? ESTALE : error;
    access_ = FileAccess::Writing;
    statuses_.push_back(status);
    if (isRoot)
      top_ = Descriptor(::openat(target_.folder(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return 0;
  }

  int finishFolder() {
    access_ = FileAccess::Writing;
    if (int error = copyMetadata(source_.folder(), target_.folder(), statuses_.back()))
      return error;
    statuses_.pop_back();
    if (int error = target_.leave())
      return error;
    return source_.leave();
  }

  std::string pathInCopy(const std::string &name) const {
    std::string below = target_.pathBelowRoot();
    return below.empty() ? name : below + "/" + name;
  }

  // Whether another name of the same file was copied before and now has this
  // name too. Where it cannot be linked the file is copied once more.
  bool linkToCopy(const ItemStatus &status, const char *targetName) {
    auto found = copies_.find({status.device, status.inode});
    if (found == copies_.end())
      return false;
    return ::linkat(top_.get(), found->second.c_str(), targetFolder(), targetName, 0) == 0;
  }

  void rememberCopy(const ItemStatus &status, const char *targetName) {
    if (!target_.empty() && copies_.size() < mostLinkedFiles)
      copies_.emplace(std::pair(status.device, status.inode), pathInCopy(targetName));
  }

  TreeResult failure(int error, const std::string &name) const {
    std::string path = srcPath_;
    for (const std::string &part : {source_.pathBelowRoot(), name})
      if (!part.empty())
        path += "/" + part;
    return TreeFailure{error, std::move(path), access_};
  }

  const ItemLocation &sourceRoot_;
  const std::string &srcPath_;
  const ItemLocation &targetRoot_;
  CopyPurpose purpose_;
  FolderStack source_;
  FolderStack target_{MountPoints::Refuse};
  std::vector<ItemStatus> statuses_;                      // of the folders that the walk is in
  Descriptor top_;                                        // the copy's root folder
  std::map<std::pair<dev_t, ino_t>, std::string> copies_; // of files with several names
  FileAccess access_ = FileAccess::Reading;               // which side failed
};

bool exists(const ItemLocation &location) {
  return ::faccessat(location.parent.get(), location.name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

// Whether the folder is, or lies in, the item.
bool liesWithin(int folder, const ItemStatus &item) {
  Descriptor current(::openat(folder, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  ItemStatus here, above;
  if (!current || readStatus(current.get(), "", here) != 0)
    return false;
  while (here.device != item.device || here.inode != item.inode) {
    Descriptor next(::openat(current.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!next || readStatus(next.get(), "", above) != 0)
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
  if (int error = readStatus(location.parent.get(), location.name.c_str(), status))
    return error;
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

TreeResult copyInto(const ItemLocation &source, const std::string &srcPath,
                    const ItemLocation &target, const std::string &dstPath, CopyPurpose purpose) {
  ItemStatus status;
  if (int error = readStatus(source.parent.get(), source.name.c_str(), status))
    return TreeFailure{error, srcPath, FileAccess::Reading};
  if (exists(target))
    return TreeFailure{EEXIST, dstPath};
  if (S_ISDIR(status.mode) && liesWithin(target.parent.get(), status))
    return TreeFailure{EINVAL, dstPath};

  Staging staging;
  if (int error = staging.open(target.parent.get()))
    return TreeFailure{error, dstPath};
  ItemLocation unfinished{Descriptor(::fcntl(staging.folder(), F_DUPFD_CLOEXEC, 0)),
                          Staging::itemName};
  if (!unfinished.parent)
    return TreeFailure{errno, dstPath};
  if (TreeResult failure = TreeCopier(source, srcPath, unfinished, purpose).run())
    return failure;
  int error = purpose == CopyPurpose::Move ? syncItem(unfinished) : 0;
  if (error == 0)
    error = renameWithoutReplacing(unfinished, target);
  return error == 0 ? TreeResult{} : TreeFailure{error, dstPath};
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
  if (int error = readStatus(from, name, status))
    return error;
  if (!S_ISDIR(status.mode) && ::linkat(from, name, to, newName, 0) == 0)
    return ::unlinkat(from, name, 0) == 0 ? 0 : errno;
  if (exists(target))
    return EEXIST;
  return ::renameat(from, name, to, newName) == 0 ? 0 : errno;
}

TreeResult copyTree(const std::string &srcPath, const std::string &dstPath) {
  ItemLocation source, target;
  if (int error = locateItem(srcPath, source))
    return TreeFailure{error, srcPath, FileAccess::Reading};
  if (int error = locateItem(dstPath, target))
    return TreeFailure{error, dstPath};
  return copyInto(source, srcPath, target, dstPath, CopyPurpose::Copy);
}

} // namespace NS
