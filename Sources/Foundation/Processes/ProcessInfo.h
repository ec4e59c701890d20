// Facts about the process itself.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <map>
#include <string>

namespace NS {

class ProcessInfo : public SharedInstance<ProcessInfo> {
public:
  using Environment = std::map<std::string, std::string, std::less<>>;

  virtual ~ProcessInfo() = default;
  static ProcessInfo &processInfo() { return shared(); }
  static ProcessInfo &real();

  // A copy of the present environment.
  virtual Environment environment() = 0;
};

// The real user that runs this process.
std::uint32_t realUserIdentifier();
// The user's name, or its number when the user database has no name for it.
std::string realUserName();

} // namespace NS
