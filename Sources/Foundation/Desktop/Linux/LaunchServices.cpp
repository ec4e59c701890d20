// This host has neither a registry nor aliases.
#include "Foundation/Desktop/LaunchServices.h"

#include "Foundation/Base/SharedInstance.h"

namespace NS {
namespace {

class NoRegistry final : public LaunchServices {
public:
  std::int32_t copyItemInfo(const std::string &, std::uint32_t, LSItemInfo &) override {
    return LSUnknownError;
  }
};

class NoAliases final : public Aliases {
public:
  std::optional<std::string> iCloudAliasPathForPath(const std::string &) override { return {}; }
  std::optional<std::string> resolveAliasFile(const std::string &) override { return {}; }
};

using SharedRegistry = SharedInstance<LaunchServices, NoRegistry>;
using SharedAliases = SharedInstance<Aliases, NoAliases>;

} // namespace

LaunchServices &LaunchServices::shared() {
  return SharedRegistry::get();
}

LaunchServices *LaunchServices::exchangeShared(LaunchServices *replacement) {
  return SharedRegistry::exchange(replacement);
}

Aliases &Aliases::shared() {
  return SharedAliases::get();
}

Aliases *Aliases::exchangeShared(Aliases *replacement) {
  return SharedAliases::exchange(replacement);
}

} // namespace NS
