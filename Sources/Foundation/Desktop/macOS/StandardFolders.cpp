// This host's users have all their folders in their homes, and each user a
// temporary folder of the system's choice.
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
