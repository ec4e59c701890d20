// The release number of a current system.
#include "Foundation/AppKitVersion.h"

#include "Foundation/SharedInstance.h"

namespace NS {
namespace {

// The AppKit of macOS 13, NSAppKitVersionNumber13_0 by the platform's headers.
constexpr double currentSystemVersion = 2299.0;

class CurrentSystem final : public AppKitVersion {
public:
  double number() const override { return currentSystemVersion; }
};

SharedInstance<AppKitVersion> &instance() {
  static CurrentSystem real;
  static SharedInstance<AppKitVersion> shared(real);
  return shared;
}

} // namespace

AppKitVersion &AppKitVersion::shared() {
  return instance().get();
}

AppKitVersion *AppKitVersion::exchangeShared(AppKitVersion *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
