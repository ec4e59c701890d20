// Handles failed argument checks. The handler in force raises. A test may
// install one that returns; callers then go on as their own contract says.
//
// Thread-safe.
#pragma once

#include "Foundation/Base/Format.h"
#include "Foundation/Base/SharedInstance.h"

#include <string>
#include <string_view>

namespace NS {

class AssertionHandler : public SharedInstance<AssertionHandler> {
public:
  virtual ~AssertionHandler() = default;
  static AssertionHandler &real();

  // The file is the source's name in the tree without its suffix. The real
  // handler logs it and raises InternalInconsistencyException with the
  // description as its reason.
  virtual void handleFailure(std::string_view file, const std::string &description) = 0;
};

// Reports a failure to the handler in force, the description in the
// platform's notation. Returns when the handler does.
template <typename... Arguments>
void assertionFailed(std::string_view file, std::string_view format,
                     const Arguments &...arguments) {
  AssertionHandler::shared().handleFailure(file, stringWithFormat(format, arguments...));
}

} // namespace NS
