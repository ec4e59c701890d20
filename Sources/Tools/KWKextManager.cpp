// Unloading and deleting a kernel extension.
#include "Tools/KWKextManager.h"

#include "Additions/NSFileManager+FileModificationsAdditions.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Text/WordList.h"
#include "Tools/KWTaskRunner.h"
#include "Tools/SystemTools.h"

#include <optional>

namespace kw {
namespace {

std::optional<std::string> bundleIdentifierAtPath(const std::string &path) {
  std::shared_ptr<NS::Bundle> bundle = NS::Bundle::bundleWithPath(path);
  return bundle ? bundle->infoString("CFBundleIdentifier") : std::nullopt;
}

} // namespace

bool KWKextManager::removeKextAtPath(const std::string &path) const {
  NS::Log("Will unload kext at path %@", path);
  std::optional<std::string> identifier = bundleIdentifierAtPath(path);
  if (!identifier) {
    NS::Log("Failed to get bundle ID for kext %@", path);
    return false;
  }
  long long status = KWTaskRunner::shared().launchTaskAndGetTermStatusWithCmd(
      tools::kextunload, NS::wordList("-p", "-b", *identifier), false);
  if (status != 0)
    NS::Log("Failed unload kext with bundle id %@. Will still just remove kext file. Will be "
            "unloaded on relaunch.",
            *identifier);
  return removeFileAtPath(NS::FileManager::defaultManager(), path, nullptr);
}

} // namespace kw
