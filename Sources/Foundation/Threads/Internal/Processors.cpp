// The processors that the host names, for all that do not replace them.
#include "Foundation/Threads/Internal/Processors.h"

#include "Foundation/Base/SharedInstance.h"

namespace NS {
namespace {

class UsableProcessors final : public Processors {
public:
  unsigned usable() const override { return host::usableProcessors(); }
};

using Shared = SharedInstance<Processors, UsableProcessors>;

} // namespace

Processors &Processors::shared() {
  return Shared::get();
}

Processors *Processors::exchangeShared(Processors *replacement) {
  return Shared::exchange(replacement);
}

} // namespace NS
