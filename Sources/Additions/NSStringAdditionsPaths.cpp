// The string additions that ask the file system about a path.
#include "Additions/NSStringAdditions.h"

#include "Additions/SandboxTildeExpansion.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Trees/FileManager.h"

namespace kw {

std::optional<std::string> volumePath(std::string_view string) {
  auto value =
      NS::getResourceValue(NS::URL::fileURLWithPath(string), NS::URLResourceKey::Volume, nullptr);
  return value ? std::optional(std::get<NS::URL>(*value).path()) : std::nullopt;
}

std::string stringByDeletingRealPathExtension(std::string_view string) {
  std::string path(string);
  bool isDirectory = false;
  if (NS::FileManager::defaultManager().fileExistsAtPath(path, isDirectory) && isDirectory)
    return path;
  return NS::stringByDeletingPathExtension(path);
}

std::string kws_stringByExpandingTildeInPath(std::string_view string) {
  // Never destroyed: threads may ask until the very end of the process.
  static SandboxTildeExpansion *const expansion = new SandboxTildeExpansion;
  return expansion->stringByExpandingTildeInPath(string);
}

} // namespace kw
