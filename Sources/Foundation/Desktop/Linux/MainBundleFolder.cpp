// The resource folder of a program outside of any bundle.
#include "Foundation/Desktop/Internal/MainBundleFolder.h"

#include "Foundation/Text/PathUtilities.h"

#include <array>
#include <climits>

#include <unistd.h>

namespace NS {
namespace {

std::string executableFolder() {
  std::array<char, PATH_MAX> path;
  ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0 || length == static_cast<ssize_t>(path.size()))
    return "";
  return stringByDeletingLastPathComponent(
      std::string_view(path.data(), static_cast<std::size_t>(length)));
}

bool holdsOurTables(const std::string &folder) {
  return ::access(stringByAppendingPathComponent(folder, "Errors.strings").c_str(), R_OK) == 0;
}

} // namespace

// The places in order: beside the programs of the build tree; one folder up,
// for its tests; as installed, relative to the program; and the fixed place,
// for an agent that was copied to another path.
std::string mainBundleFolder() {
  std::string folder = executableFolder();
  if (!folder.empty())
    for (const char *relative :
         {"Resources", "../Resources", "../share/keepwell", "../../share/keepwell"}) {
      std::string candidate = stringByAppendingPathComponent(folder, relative);
      if (holdsOurTables(candidate))
        return candidate;
    }
  return KEEPWELL_RESOURCE_FOLDER;
}

} // namespace NS
