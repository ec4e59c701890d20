// Sets up a new connection.
#include "Agent/KWAgentServiceDelegate.h"

#include "Agent/KWPrivilegedOperationProgress.h"
#include "Agent/KWPriviligedOperations.h"

namespace kw {

bool KWAgentServiceDelegate::listenerShouldAcceptNewConnection(
    NS::XPCListener &, const std::shared_ptr<NS::XPCConnection> &connection) {
  connection->setExportedInterface(KWPrivilegedOperation::interface());
  connection->setRemoteObjectInterface(KWPrivilegedOperationProgress::interface());
  auto operations = std::make_shared<KWPriviligedOperations>();
  operations->setXPCConnection(connection);
  connection->setExportedObject(operations);
  connection->resume();
  return true;
}

} // namespace kw
