// The object's only state: the connection that owns it.
#include "Agent/KWPriviligedOperations.h"

namespace kw {

std::shared_ptr<NS::XPCConnection> KWPriviligedOperations::xpcConnection() const {
  std::lock_guard lock(mutex_);
  return xpcConnection_.lock();
}

void KWPriviligedOperations::setXPCConnection(
    const std::shared_ptr<NS::XPCConnection> &connection) {
  std::lock_guard lock(mutex_);
  xpcConnection_ = connection;
}

} // namespace kw
