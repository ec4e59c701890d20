// The processors that the host names, for all that do not replace them.
#include "Foundation/Threads/Internal/Processors.h"

namespace NS {
namespace {

class UsableProcessors final : public Processors {
public:
  unsigned usable() const override { return host::usableProcessors(); }
};

} // namespace

Processors &Processors::real() {
  return lastingInstance<UsableProcessors>();
}

} // namespace NS
