// The Trash, as the desktop's own library keeps it.
#include "Foundation/Trees/Internal/HostTrash.h"

#include <cerrno>
#include <gio/gio.h>

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

} // namespace

std::optional<Error> host::moveToTrash(const std::string &resolved, const std::string &path) {
  // Names the local file system, which asks no desktop service.
  g_autoptr(GFile) file = g_vfs_get_file_for_path(g_vfs_get_local(), resolved.c_str());
  g_autoptr(GError) cause = nullptr;
  if (g_file_trash(file, nullptr, &cause))
    return {};
  return fileError(errnoFromGIO(cause->code), path, FileAccess::Writing);
}

} // namespace NS
