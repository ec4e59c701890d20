// Tilde expansion that leads a sandboxed process to its user's real home.
//
// An instance keeps its first reading: the environment and, in a sandbox, the
// home of the user's record. Any thread may use it.
#pragma once

#include "Foundation/Files/URL.h"
#include "Foundation/Processes/ProcessInfo.h"

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace kw {

class SandboxTildeExpansion {
public:
  // Fails an assertion on "pw" when the process is sandboxed and its user has
  // no record; if the handler returns, returns the path unchanged.
  std::string stringByExpandingTildeInPath(std::string_view path);

private:
  bool isSandboxed();
  std::optional<std::string> realHome();

  std::mutex mutex_; // guards both caches
  std::optional<NS::ProcessInfo::Environment> environment_;
  std::optional<NS::URL> realHomeURL_;
};

} // namespace kw
