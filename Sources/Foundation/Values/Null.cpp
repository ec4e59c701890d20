// The one object that represents a missing value.
#include "Foundation/Values/Null.h"

namespace NS {

const std::shared_ptr<Null> &Null::null() {
  static const std::shared_ptr<Null> instance(new Null);
  return instance;
}

} // namespace NS
