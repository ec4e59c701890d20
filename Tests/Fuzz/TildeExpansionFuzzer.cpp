// Tilde expansion of any bytes, in a sandbox and out of it, over an invented
// user database.
#include "Additions/SandboxTildeExpansion.h"
#include "Foundation/Desktop/HomeDirectory.h"
#include "Support/FakeUsers.h"
#include "Support/FuzzInput.h"

#include "Foundation/Base/SharedInstance.h"

namespace {

void expand(std::string_view path, bool sandboxed) {
  kwtest::FakeProcessInfo process;
  process.values = {{"HOME", sandboxed ? "/container" : "/home/me"}};
  if (sandboxed)
    process.values.emplace("APP_SANDBOX_CONTAINER_ID", "x");
  kwtest::FakeUserDatabase users;
  users.current = "/home/me";
  users.others = {{"ada", "/home/ada"}, {"\xff", "/home/\xff/"}};
  NS::ScopedOverride<NS::ProcessInfo> processOverride(process);
  NS::ScopedOverride<NS::UserDatabase> usersOverride(users);

  std::string expanded = kw::SandboxTildeExpansion().stringByExpandingTildeInPath(path);
  if (!path.starts_with('~')) {
    kwtest::require(expanded == path, "a path without a tilde stays");
    return;
  }
  kwtest::require(!expanded.starts_with("/container"), "nothing leads into the container");
  if (sandboxed)
    kwtest::require(expanded == "/home/me" + std::string(path.substr(1)),
                    "everything leads to the real home");
  else
    kwtest::require(expanded.size() == 1 || !expanded.ends_with('/'),
                    "no slash is left at the end");
  if (!expanded.starts_with('~'))
    kwtest::require(NS::stringByExpandingTildeInPath(expanded) == expanded,
                    "an expanded path stays");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view path = kwtest::fuzzText(data, size);
  expand(path, false);
  expand(path, true);
  return 0;
}
