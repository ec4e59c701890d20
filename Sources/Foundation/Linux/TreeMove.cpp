// Moving: a rename on one volume, a complete copy and then a removal across
// two.
#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/Linux/TreeCopy.h"
#include "Foundation/Linux/TreeRemoval.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace NS {
namespace {

// Which of the two paths a refused rename is about.
const std::string &failingPath(int error, const ItemLocation &source, const std::string &srcPath,
                               const std::string &dstPath) {
  struct stat status;
  if (::fstatat(source.parent.get(), source.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return srcPath;
  switch (error) {
  case EEXIST:
  case EINVAL:
  case ENOENT:
  case ENOSPC:
  case EDQUOT:
  case EMLINK:
  case ENAMETOOLONG:
    return dstPath;
  default:
    return srcPath;
  }
}

bool isOnReadOnlyVolume(const ItemLocation &location) {
  struct statvfs volume;
  return ::fstatvfs(location.parent.get(), &volume) == 0 && (volume.f_flag & ST_RDONLY) != 0;
}

void syncFolder(const ItemLocation &location) {
  Descriptor folder(::openat(location.parent.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder)
    static_cast<void>(::fsync(folder.get()));
}

TreeResult moveAcross(const ItemLocation &source, const std::string &srcPath,
                      const ItemLocation &target, const std::string &dstPath) {
  // It would only turn out after the whole copy.
  if (isOnReadOnlyVolume(source))
    return TreeFailure{EROFS, srcPath};
  if (TreeResult failure = copyInto(source, srcPath, target, dstPath, CopyPurpose::Move)) {
    failure->access = FileAccess::Writing;
    return failure;
  }
  syncFolder(target);
  PlainEraser eraser;
  return removeTree(source, srcPath, eraser, Recursion::WholeTree);
}

} // namespace

TreeResult moveTree(const std::string &srcPath, const std::string &dstPath) {
  ItemLocation source, target;
  if (int error = locateItem(srcPath, source))
    return TreeFailure{error, srcPath};
  if (int error = locateItem(dstPath, target))
    return TreeFailure{error, dstPath};
  int error = renameWithoutReplacing(source, target);
  if (error == EXDEV)
    return moveAcross(source, srcPath, target, dstPath);
  if (error == 0)
    return {};
  return TreeFailure{error, failingPath(error, source, srcPath, dstPath)};
}

} // namespace NS
