// All folders of a user are in that user's home here, but for a temporary folder
// at a place that the system chooses.
#include "Foundation/Desktop/Internal/HostFolders.h"

#include <climits>
#include <unistd.h>

namespace NS::host {

FolderHost folderHost() {
  return FolderHost::macOS;
}

std::optional<std::string> folderOfBase(FolderBase, SearchPathDirectory) {
  return std::nullopt;
}

std::string temporaryDirectory() {
  char path[PATH_MAX];
  std::size_t length = ::confstr(_CS_DARWIN_USER_TEMP_DIR, path, sizeof path);
  if (length > 1 && length <= sizeof path) // with its NUL
    return path;
  return absolutePathInEnvironment("TMPDIR").value_or("/tmp");
}

} // namespace NS::host
