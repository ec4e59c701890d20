// Finds the item for the Trash, by the rules of a removal.
#include "Foundation/Base/Progress.h"
#include "Foundation/Files/POSIX/ItemLocation.h"
#include "Foundation/Trees/Internal/HostTrash.h"
#include "Foundation/Trees/Internal/TreeOperations.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace NS {
namespace {

// Refuses paths that removal refuses, and returns the path by which a library
// reaches the same item as the kernel: libraries take "folder/.." out of a path
// by text, though the folder may be a link that leads elsewhere.
int pathForTrash(const std::string &path, std::string &resolved) {
  if (Progress::current().isCancelled())
    return ECANCELED;
  ItemLocation location;
  if (int error = locateItem(path, location))
    return error;
  struct stat status;
  if (::fstatat(location.parent.get(), location.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return errno;
  return resolvePath(location, resolved);
}

} // namespace

std::optional<Error> moveToTrash(const std::string &path) {
  std::string resolved;
  if (int error = pathForTrash(path, resolved))
    return fileError(error, path, FileAccess::Writing);
  return host::moveToTrash(resolved, path);
}

} // namespace NS
