// The version of the system's AppKit.
#include "Foundation/Desktop/AppKitVersion.h"

#include "Foundation/Base/SharedInstance.h"

extern "C" const double NSAppKitVersionNumber;

namespace NS {
namespace {

class PlatformVersion final : public AppKitVersion {
public:
  double number() const override { return ::NSAppKitVersionNumber; }
};

using Shared = SharedInstance<AppKitVersion, PlatformVersion>;

} // namespace

AppKitVersion &AppKitVersion::shared() {
  return Shared::get();
}

AppKitVersion *AppKitVersion::exchangeShared(AppKitVersion *replacement) {
  return Shared::exchange(replacement);
}

} // namespace NS
