// Facts about the process itself.
//
// Thread-safe. Asking for the user's name may block on the host's name service.
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

  // Returns a copy of the present environment.
  virtual Environment environment() = 0;
};

// The real user that runs this process.
std::uint32_t realUserIdentifier();
// The user's name, or its number when the user database has no name for it.
std::string realUserName();

} // namespace NS
