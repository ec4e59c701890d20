// The handler that raises.
#include "Foundation/Base/AssertionHandler.h"

#include "Foundation/Base/Log.h"

namespace NS {
namespace {

class RaisingHandler final : public AssertionHandler {
public:
  void handleFailure(std::string_view file, const std::string &description) override {
    Log("*** Assertion failure in %@: %@", file, description);
    throw Exception(InternalInconsistencyException, description);
  }
};

} // namespace

AssertionHandler &AssertionHandler::real() {
  return lastingInstance<RaisingHandler>();
}

} // namespace NS
