// Which protocol an interface stands for.
#include "Protocol/macOS/XPCProtocols.h"

namespace NS {

Protocol *protocolOfInterface(const std::string &name) {
  std::string last = name.substr(name.rfind('.') + 1);
  if (last == "KWPrivilegedOperation")
    return @protocol(KWPrivilegedOperation);
  return last == "KWPrivilegedOperationProgress" ? @protocol(KWPrivilegedOperationProgress) : nil;
}

} // namespace NS
