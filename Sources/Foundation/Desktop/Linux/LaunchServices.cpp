// This host has neither a registry nor aliases.
#include "Foundation/Desktop/LaunchServices.h"

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

} // namespace

LaunchServices &LaunchServices::real() {
  return lastingInstance<NoRegistry>();
}

Aliases &Aliases::real() {
  return lastingInstance<NoAliases>();
}

} // namespace NS
