// A sandbox is recognised by the variable that names its container.
#include "Additions/SandboxTildeExpansion.h"

#include "Foundation/Base/AssertionHandler.h"
#include "Foundation/Desktop/HomeDirectory.h"

namespace kw {
namespace {

constexpr std::string_view containerVariable = "APP_SANDBOX_CONTAINER_ID";
constexpr std::string_view sourceFile = "Sources/Additions/NSStringAdditions";

} // namespace

bool SandboxTildeExpansion::isSandboxed() {
  std::lock_guard lock(mutex_);
  if (!environment_)
    environment_ = NS::ProcessInfo::processInfo().environment();
  return environment_->contains(containerVariable);
}

std::optional<std::string> SandboxTildeExpansion::realHome() {
  std::lock_guard lock(mutex_);
  if (!realHomeURL_) {
    std::optional<std::string> pw = NS::UserDatabase::shared().homeDirectoryOfCurrentUser();
    if (!pw) {
      NS::assertionFailed(sourceFile, "pw");
      return std::nullopt;
    }
    realHomeURL_ = NS::URL::fileURLWithPath(*pw, true);
  }
  return realHomeURL_->path();
}

std::string SandboxTildeExpansion::stringByExpandingTildeInPath(std::string_view path) {
  if (!isSandboxed())
    return NS::stringByExpandingTildeInPath(path);
  std::optional<std::string> home = realHome();
  if (!home)
    return std::string(path);
  if (!path.starts_with('~'))
    return NS::stringByExpandingTildeInPath(path);
  return NS::stringByExpandingTildeInPath(*home + std::string(path.substr(1)));
}

} // namespace kw
