// The handler that raises.
#include "Foundation/Base/AssertionHandler.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Base/SharedInstance.h"

namespace NS {
namespace {

class RaisingHandler final : public AssertionHandler {
public:
  void handleFailure(std::string_view file, const std::string &description) override {
    Log("*** Assertion failure in %@: %@", file, description);
    throw Exception(InternalInconsistencyException, description);
  }
};

using Shared = SharedInstance<AssertionHandler, RaisingHandler>;

} // namespace

AssertionHandler &AssertionHandler::shared() {
  return Shared::get();
}

AssertionHandler *AssertionHandler::exchangeShared(AssertionHandler *replacement) {
  return Shared::exchange(replacement);
}

} // namespace NS
