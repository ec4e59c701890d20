// The processors that the host names, for all that do not replace them.
#include "Foundation/Threads/Internal/Processors.h"

#include "Foundation/Base/SharedInstance.h"

namespace NS {
namespace {

class UsableProcessors final : public Processors {
public:
  unsigned usable() const override { return host::usableProcessors(); }
};

SharedInstance<Processors> &instance() {
  static UsableProcessors real;
  static SharedInstance<Processors> shared(real);
  return shared;
}

} // namespace

Processors &Processors::shared() {
  return instance().get();
}

Processors *Processors::exchangeShared(Processors *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
