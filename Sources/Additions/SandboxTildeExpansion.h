// Tilde expansion that leads a sandboxed process to its user's real home.
//
// An instance keeps what it read first: the environment and, in a sandbox, the
// home of the user's record. May be used from any thread.
#pragma once

#include "Foundation/ProcessInfo.h"
#include "Foundation/URL.h"

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace kw {

class SandboxTildeExpansion {
public:
  // Fails an assertion on "pw" when the process is sandboxed and its user has
  // no record; where the handler lets that pass, the path comes back as it is.
  std::string stringByExpandingTildeInPath(std::string_view path);

private:
  bool isSandboxed();
  std::optional<std::string> realHome();

  std::mutex mutex_; // guards both caches
  std::optional<NS::ProcessInfo::Environment> environment_;
  std::optional<NS::URL> realHomeURL_;
};

} // namespace kw
