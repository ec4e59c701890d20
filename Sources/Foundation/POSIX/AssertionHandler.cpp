// The handler that raises.
#include "Foundation/AssertionHandler.h"

#include "Foundation/Log.h"
#include "Foundation/SharedInstance.h"

namespace NS {
namespace {

class RaisingHandler final : public AssertionHandler {
public:
  void handleFailure(std::string_view file, const std::string &description) override {
    Log("*** Assertion failure in %@: %@", file, description);
    throw Exception(InternalInconsistencyException, description);
  }
};

SharedInstance<AssertionHandler> &instance() {
  static RaisingHandler real;
  static SharedInstance<AssertionHandler> shared(real);
  return shared;
}

} // namespace

AssertionHandler &AssertionHandler::shared() {
  return instance().get();
}

AssertionHandler *AssertionHandler::exchangeShared(AssertionHandler *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
