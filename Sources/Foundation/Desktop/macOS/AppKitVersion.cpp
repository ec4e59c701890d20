// The version of the system's AppKit.
#include "Foundation/Desktop/AppKitVersion.h"

extern "C" const double NSAppKitVersionNumber;

namespace NS {
namespace {

class PlatformVersion final : public AppKitVersion {
public:
  double number() const override { return ::NSAppKitVersionNumber; }
};

} // namespace

AppKitVersion &AppKitVersion::real() {
  return lastingInstance<PlatformVersion>();
}

} // namespace NS
