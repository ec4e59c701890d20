// The version of the system's AppKit.
#include "Foundation/AppKitVersion.h"

#include "Foundation/SharedInstance.h"

extern "C" const double NSAppKitVersionNumber;

namespace NS {
namespace {

class PlatformVersion final : public AppKitVersion {
public:
  double number() const override { return ::NSAppKitVersionNumber; }
};

SharedInstance<AppKitVersion> &instance() {
  static PlatformVersion real;
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
