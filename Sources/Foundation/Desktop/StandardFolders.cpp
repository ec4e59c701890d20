// The standard folders by the table, in the host's own places.
#include "Foundation/Desktop/StandardFolders.h"

#include "Foundation/Desktop/HomeDirectory.h"
#include "Foundation/Desktop/Internal/HostFolders.h"
#include "Foundation/Processes/ProcessInfo.h"

namespace NS {
namespace {

std::optional<std::string> folderOfBase(FolderBase base, SearchPathDirectory directory) {
  if (base == FolderBase::Root)
    return "/";
  return base == FolderBase::Home ? homeDirectory() : host::folderOfBase(base, directory);
}

class HostFolders final : public StandardFolders {
public:
  std::vector<std::string> searchPathForDirectoriesInDomains(SearchPathDirectory directory,
                                                             SearchPathDomainMask domainMask,
                                                             bool expandTilde) override {
    std::vector<std::string> folders;
    for (const FolderPlace &place :
         standardFolderPlaces(host::folderHost(), directory, domainMask)) {
      auto base = folderOfBase(place.base, directory);
      if (!base)
        continue;
      std::string folder = standardFolderPath(*base, place.path);
      bool keepsTilde = !expandTilde && place.base != FolderBase::Root;
      folders.push_back(keepsTilde ? stringByAbbreviatingHome(folder, homeDirectory()) : folder);
    }
    return folders;
  }

  std::string temporaryDirectory() override { return host::temporaryDirectory(); }
};

} // namespace

StandardFolders &StandardFolders::real() {
  return lastingInstance<HostFolders>();
}

std::optional<std::string> host::absolutePathInEnvironment(const char *variable) {
  ProcessInfo::Environment environment = ProcessInfo::processInfo().environment();
  auto value = environment.find(variable);
  bool isAbsolute = value != environment.end() && value->second.starts_with('/');
  return isAbsolute ? std::optional(value->second) : std::nullopt;
}

} // namespace NS
