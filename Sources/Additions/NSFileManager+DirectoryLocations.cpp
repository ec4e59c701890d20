// Standard folders and scratch folders.
#include "Additions/NSFileManager+DirectoryLocations.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Text/PathUtilities.h"

#include <algorithm>

namespace kw {
namespace {

NS::Error locationError(DirectoryLocationErrorCode code, std::string description,
                        NS::SearchPathDirectory directory, NS::SearchPathDomainMask domain) {
  NS::UserInfo info;
  info.emplace(NS::LocalizedDescriptionKey, std::move(description));
  info.emplace("NSSearchPathDirectory", static_cast<std::uint64_t>(directory));
  info.emplace("NSSearchPathDomainMask", static_cast<std::uint64_t>(domain));
  return NS::Error(kDirectoryLocationDomain, code, std::move(info));
}

void clear(NS::ErrorSlot error) {
  if (error)
    error->reset();
}

// Tells whether the name stays below the folder that it is joined to. Otherwise
// the folder itself would be emptied.
bool namesSomethingInside(std::string_view name) {
  bool isNothing = true;
  while (!name.empty()) {
    std::size_t slash = std::min(name.find('/'), name.size());
    std::string_view component = name.substr(0, slash);
    if (component == "." || component == "..")
      return false;
    isNothing = isNothing && component.empty();
    name.remove_prefix(std::min(slash + 1, name.size()));
  }
  return !isNothing;
}

} // namespace

std::optional<std::string>
findOrCreateDirectory(NS::FileManager &manager, NS::SearchPathDirectory directory,
                      NS::SearchPathDomainMask inDomain,
                      const std::optional<std::string> &appendPathComponent, NS::ErrorSlot error) {
  auto folders =
      NS::StandardFolders::shared().searchPathForDirectoriesInDomains(directory, inDomain, true);
  if (folders.empty()) {
    NS::storeError(error,
                   locationError(DirectoryLocationErrorNoPathFound,
                                 "No path found for directory in domain.", directory, inDomain));
    return std::nullopt;
  }
  std::string path = folders.front();
  if (appendPathComponent)
    path = NS::stringByAppendingPathComponent(path, *appendPathComponent);
  bool isDirectory = false;
  bool exists = manager.fileExistsAtPath(path, isDirectory);
  if (exists && !isDirectory) {
    NS::storeError(error, locationError(DirectoryLocationErrorFileExistsAtLocation,
                                        NS::Bundle::mainBundle().localizedStringForKey(
                                            "File exists at requested directory location.", "", {}),
                                        directory, inDomain));
    return std::nullopt;
  }
  if (!exists && !manager.createDirectoryAtPath(path, true, error))
    return std::nullopt;
  clear(error);
  return path;
}

std::optional<std::string>
userApplicationSupportDirectoryWithAppName(NS::FileManager &manager,
                                           const std::optional<std::string> &appName) {
  std::optional<NS::Error> error;
  auto path = findOrCreateDirectory(manager, NS::SearchPathDirectory::ApplicationSupport,
                                    NS::UserDomainMask, appName, &error);
  if (!path)
    NS::Log("Unable to find or create application support directory:\n%@", error);
  return path;
}

std::optional<std::string> userApplicationSupportDirectory(NS::FileManager &manager) {
  return userApplicationSupportDirectoryWithAppName(
      manager, NS::Bundle::mainBundle().infoString("CFBundleExecutable"));
}

std::optional<std::string> temporaryDirectoryWithName(NS::FileManager &manager,
                                                      const std::string &name) {
  std::string path =
      NS::stringByAppendingPathComponent(NS::StandardFolders::shared().temporaryDirectory(), name);
  if (!namesSomethingInside(name)) {
    NS::Log("Failed to create directory %@", path);
    return std::nullopt;
  }
  NS::URL url = NS::URL::fileURLWithPath(path, true);
  if (manager.fileExistsAtPath(path) && !manager.removeItemAtURL(url, nullptr)) {
    NS::Log("Failed to remove directory %@", path);
    return std::nullopt;
  }
  if (!manager.createDirectoryAtURL(url, true, nullptr)) {
    NS::Log("Failed to create directory %@", path);
    return std::nullopt;
  }
  return path;
}

} // namespace kw
