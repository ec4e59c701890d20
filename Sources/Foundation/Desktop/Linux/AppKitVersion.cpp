// The release number of a current system.
#include "Foundation/Desktop/AppKitVersion.h"

namespace NS {
namespace {

// The AppKit of macOS 13, NSAppKitVersionNumber13_0 by the platform's headers.
constexpr double currentSystemVersion = 2299.0;

class CurrentSystem final : public AppKitVersion {
public:
  double number() const override { return currentSystemVersion; }
};

} // namespace

AppKitVersion &AppKitVersion::real() {
  return lastingInstance<CurrentSystem>();
}

} // namespace NS
