// The desktop's base directories and the user's own folders.
#include "Foundation/Desktop/HomeDirectory.h"
#include "Foundation/Desktop/Internal/HostFolders.h"
#include "Foundation/Text/PathUtilities.h"

#include <glib.h>

namespace NS::host {
namespace {

std::string baseDirectory(const char *variable, std::string_view nameInHome) {
  auto path = absolutePathInEnvironment(variable);
  return path ? *path : stringByAppendingPathComponent(homeDirectory(), nameInHome);
}

std::optional<GUserDirectory> kindOfUserDirectory(SearchPathDirectory directory) {
  switch (directory) {
  case SearchPathDirectory::Document:
    return G_USER_DIRECTORY_DOCUMENTS;
  case SearchPathDirectory::Desktop:
    return G_USER_DIRECTORY_DESKTOP;
  case SearchPathDirectory::Downloads:
    return G_USER_DIRECTORY_DOWNLOAD;
  case SearchPathDirectory::Movies:
    return G_USER_DIRECTORY_VIDEOS;
  case SearchPathDirectory::Music:
    return G_USER_DIRECTORY_MUSIC;
  case SearchPathDirectory::Pictures:
    return G_USER_DIRECTORY_PICTURES;
  case SearchPathDirectory::SharedPublic:
    return G_USER_DIRECTORY_PUBLIC_SHARE;
  default:
    return std::nullopt;
  }
}

std::optional<std::string> userDirectory(SearchPathDirectory directory) {
  auto kind = kindOfUserDirectory(directory);
  const gchar *path = kind ? g_get_user_special_dir(*kind) : nullptr;
  return path ? std::optional<std::string>(path) : std::nullopt;
}

} // namespace

FolderHost folderHost() {
  return FolderHost::Linux;
}

std::optional<std::string> folderOfBase(FolderBase base, SearchPathDirectory directory) {
  switch (base) {
  case FolderBase::UserData:
    return baseDirectory("XDG_DATA_HOME", ".local/share");
  case FolderBase::UserCaches:
    return baseDirectory("XDG_CACHE_HOME", ".cache");
  case FolderBase::UserDirectory:
    return userDirectory(directory);
  default:
    return std::nullopt;
  }
}

std::string temporaryDirectory() {
  return absolutePathInEnvironment("TMPDIR").value_or("/tmp");
}

} // namespace NS::host
