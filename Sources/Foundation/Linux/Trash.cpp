// The Trash, as the desktop's own library keeps it.
#include "Foundation/Linux/ItemLocation.h"
#include "Foundation/Linux/TreeOperations.h"

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

// What removal refuses the Trash refuses too; GIO would quietly resolve ".."
// by text and take another item.
int checkItem(const std::string &path) {
  ItemLocation location;
  if (int error = locateItem(path, location))
    return error;
  struct stat status;
  return ::fstatat(location.parent.get(), location.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0
             ? 0
             : errno;
}

} // namespace

std::optional<Error> moveToTrash(const std::string &path) {
  if (int error = checkItem(path))
    return fileError(error, path, FileAccess::Writing);
  // The local file system by name: no desktop service is asked.
  GFile *file = g_vfs_get_file_for_path(g_vfs_get_local(), path.c_str());
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
