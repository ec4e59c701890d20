// The release number of a current system.
#include "Foundation/Desktop/AppKitVersion.h"

#include "Foundation/Base/SharedInstance.h"

namespace NS {
namespace {

// The AppKit of macOS 13, NSAppKitVersionNumber13_0 by the platform's headers.
constexpr double currentSystemVersion = 2299.0;

class CurrentSystem final : public AppKitVersion {
public:
  double number() const override { return currentSystemVersion; }
};

using Shared = SharedInstance<AppKitVersion, CurrentSystem>;

} // namespace

AppKitVersion &AppKitVersion::shared() {
  return Shared::get();
}

AppKitVersion *AppKitVersion::exchangeShared(AppKitVersion *replacement) {
  return Shared::exchange(replacement);
}

} // namespace NS
