// The desktop's base directories and the user's own folders.
#include "Foundation/StandardFolders.h"

#include "Foundation/HomeDirectory.h"
#include "Foundation/PathUtilities.h"
#include "Foundation/ProcessInfo.h"
#include "Foundation/SharedInstance.h"

#include <glib.h>
#include <optional>

namespace NS {
namespace {

// An absolute path of the environment, as the base directory rules demand, else
// the folder of that name in the user's home.
std::string baseDirectory(const char *variable, std::string_view nameInHome) {
  ProcessInfo::Environment environment = ProcessInfo::processInfo().environment();
  auto value = environment.find(variable);
  if (value != environment.end() && value->second.starts_with('/'))
    return value->second;
  return stringByAppendingPathComponent(homeDirectory(), nameInHome);
}

std::string userData() {
  return baseDirectory("XDG_DATA_HOME", ".local/share");
}

std::optional<std::string> specialDirectory(GUserDirectory kind) {
  const gchar *path = g_get_user_special_dir(kind);
  return path ? std::optional<std::string>(path) : std::nullopt;
}

std::optional<std::string> folderOfUser(SearchPathDirectory directory) {
  switch (directory) {
  case SearchPathDirectory::Application:
    return stringByAppendingPathComponent(userData(), "applications");
  case SearchPathDirectory::Library:
  case SearchPathDirectory::ApplicationSupport:
    return userData();
  case SearchPathDirectory::Caches:
    return baseDirectory("XDG_CACHE_HOME", ".cache");
  case SearchPathDirectory::Trash:
    return stringByAppendingPathComponent(userData(), "Trash");
  case SearchPathDirectory::Document:
    return specialDirectory(G_USER_DIRECTORY_DOCUMENTS);
  case SearchPathDirectory::Desktop:
    return specialDirectory(G_USER_DIRECTORY_DESKTOP);
  case SearchPathDirectory::Downloads:
    return specialDirectory(G_USER_DIRECTORY_DOWNLOAD);
  case SearchPathDirectory::Movies:
    return specialDirectory(G_USER_DIRECTORY_VIDEOS);
  case SearchPathDirectory::Music:
    return specialDirectory(G_USER_DIRECTORY_MUSIC);
  case SearchPathDirectory::Pictures:
    return specialDirectory(G_USER_DIRECTORY_PICTURES);
  case SearchPathDirectory::SharedPublic:
    return specialDirectory(G_USER_DIRECTORY_PUBLIC_SHARE);
  }
  return std::nullopt;
}

// Of all users: the data below a prefix, and the one cache of the system.
std::optional<std::string> sharedFolder(SearchPathDirectory directory, const std::string &data,
                                        const std::optional<std::string> &caches) {
  switch (directory) {
  case SearchPathDirectory::Application:
    return data + "/applications";
  case SearchPathDirectory::Library:
  case SearchPathDirectory::ApplicationSupport:
    return data;
  case SearchPathDirectory::Caches:
    return caches;
  default:
    return std::nullopt;
  }
}

std::string withTilde(const std::string &path) {
  std::string home = homeDirectory();
  if (home == "/" || (path != home && !path.starts_with(home + "/")))
    return path;
  std::string shortened(1, '~');
  return shortened.append(path, home.size());
}

class DesktopFolders final : public StandardFolders {
public:
  std::vector<std::string> searchPathForDirectoriesInDomains(SearchPathDirectory directory,
                                                             SearchPathDomainMask domainMask,
                                                             bool expandTilde) override {
    std::vector<std::string> folders;
    if (domainMask & UserDomainMask)
      if (auto folder = folderOfUser(directory))
        folders.push_back(expandTilde ? *folder : withTilde(*folder));
    if (domainMask & LocalDomainMask)
      if (auto folder = sharedFolder(directory, "/usr/local/share", "/var/cache"))
        folders.push_back(*folder);
    if (domainMask & SystemDomainMask)
      if (auto folder = sharedFolder(directory, "/usr/share", std::nullopt))
        folders.push_back(*folder);
    return folders;
  }

  std::string temporaryDirectory() override {
    ProcessInfo::Environment environment = ProcessInfo::processInfo().environment();
    auto value = environment.find("TMPDIR");
    bool isAbsolute = value != environment.end() && value->second.starts_with('/');
    return isAbsolute ? value->second : "/tmp";
  }
};

SharedInstance<StandardFolders> &instance() {
  static DesktopFolders real;
  static SharedInstance<StandardFolders> shared(real);
  return shared;
}

} // namespace

StandardFolders &StandardFolders::shared() {
  return instance().get();
}

StandardFolders *StandardFolders::exchangeShared(StandardFolders *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
