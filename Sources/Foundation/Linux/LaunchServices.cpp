// This host has neither a registry nor aliases.
#include "Foundation/LaunchServices.h"

#include "Foundation/SharedInstance.h"

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

SharedInstance<LaunchServices> &registry() {
  static NoRegistry real;
  static SharedInstance<LaunchServices> shared(real);
  return shared;
}

SharedInstance<Aliases> &aliases() {
  static NoAliases real;
  static SharedInstance<Aliases> shared(real);
  return shared;
}

} // namespace

LaunchServices &LaunchServices::shared() {
  return registry().get();
}

LaunchServices *LaunchServices::exchangeShared(LaunchServices *replacement) {
  return registry().exchange(replacement);
}

Aliases &Aliases::shared() {
  return aliases().get();
}

Aliases *Aliases::exchangeShared(Aliases *replacement) {
  return aliases().exchange(replacement);
}

} // namespace NS
