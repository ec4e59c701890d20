// The Trash, as the desktop's own library keeps it.
#include "Foundation/Base/Progress.h"
#include "Foundation/Files/Linux/ItemLocation.h"
#include "Foundation/Trees/Linux/TreeOperations.h"

#include <cerrno>
#include <fcntl.h>
#include <gio/gio.h>
#include <sys/stat.h>

namespace NS {
namespace {

int errnoFromGIO(int code) {
  switch (code) {
  case G_IO_ERROR_NOT_FOUND:
    return ENOENT;
  case G_IO_ERROR_PERMISSION_DENIED:
    return EACCES;
  case G_IO_ERROR_NO_SPACE:
    return ENOSPC;
  case G_IO_ERROR_READ_ONLY:
    return EROFS;
  case G_IO_ERROR_FILENAME_TOO_LONG:
    return ENAMETOOLONG;
  case G_IO_ERROR_INVALID_FILENAME:
  case G_IO_ERROR_INVALID_ARGUMENT:
    return EINVAL;
  case G_IO_ERROR_BUSY:
    return EBUSY;
  case G_IO_ERROR_NOT_SUPPORTED:
    return ENOTSUP;
  default:
    return EIO;
  }
}

// Refuses paths that removal refuses, and returns the path by which GIO reaches
// the same item as the kernel: GIO takes "folder/.." out of a path by text,
// though the folder may be a link that leads elsewhere.
int pathForGIO(const std::string &path, std::string &resolved) {
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
  if (int error = pathForGIO(path, resolved))
    return fileError(error, path, FileAccess::Writing);
  // Names the local file system, which asks no desktop service.
  GFile *file = g_vfs_get_file_for_path(g_vfs_get_local(), resolved.c_str());
  GError *cause = nullptr;
  std::optional<Error> error;
  if (!g_file_trash(file, nullptr, &cause)) {
    error = fileError(errnoFromGIO(cause->code), path, FileAccess::Writing);
    g_error_free(cause);
  }
  g_object_unref(file);
  return error;
}

} // namespace NS
