// Asks the local file system of GIO. The default file system of GIO would load
// extensions and look for a session bus, which a daemon does not use.
#include "Foundation/Files/Internal/ItemPresentation.h"

#include <cerrno>
#include <gio/gio.h>
#include <memory>
#include <sys/stat.h>

namespace NS {
namespace {

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
using FileInfo = std::unique_ptr<GFileInfo, Unref>;

// Null with errno set when GIO has no such information.
FileInfo information(const std::string &path, const char *attribute) {
  struct stat status;
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return nullptr;
  }
  if (::lstat(path.c_str(), &status) != 0)
    return nullptr;
  std::unique_ptr<GFile, Unref> file(g_vfs_get_file_for_path(g_vfs_get_local(), path.c_str()));
  FileInfo info(g_file_query_info(file.get(), attribute, G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS,
                                  nullptr, nullptr));
  if (!info)
    errno = EIO;
  return info;
}

} // namespace

std::optional<Icon> effectiveIconOfItem(const std::string &path) {
  FileInfo info = information(path, G_FILE_ATTRIBUTE_STANDARD_ICON);
  if (!info)
    return std::nullopt;
  GIcon *icon = g_file_info_get_icon(info.get());
  Icon names;
  if (G_IS_THEMED_ICON(icon)) // not null then
    for (const gchar *const *name = g_themed_icon_get_names(G_THEMED_ICON(icon)); *name; ++name)
      names.names.emplace_back(*name);
  if (!names.names.empty())
    return names;
  errno = ENODATA;
  return std::nullopt;
}

std::optional<std::string> localizedNameOfItem(const std::string &path) {
  FileInfo info = information(path, G_FILE_ATTRIBUTE_STANDARD_DISPLAY_NAME);
  const char *name = info ? g_file_info_get_display_name(info.get()) : nullptr;
  if (name)
    return std::string(name);
  if (info)
    errno = ENODATA;
  return std::nullopt;
}

} // namespace NS
