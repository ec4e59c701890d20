// Turns a handler's exceptions into outcomes; no other code does.
#include "Service/Internal/RequestInvocation.h"

#include "Foundation/Base/Log.h"

#include <exception>

namespace NS {

void invokeRequest(const XPCMethod &method, XPCObject &object, const XPCValues &arguments,
                   const XPCReply &back, XPCRequester requester) noexcept {
  try {
    XPCReply reply = method.succeeded ? recordingReply(method, arguments, requester, back) : back;
    try {
      method.invoker(object, arguments, reply);
      if (method.oneWay)
        reply.send({}); // no client waits; that it was handled is its outcome
    } catch (const std::exception &exception) {
      reply.fail(exception.what());
    } catch (...) {
      reply.fail("an exception of unknown type");
    }
  } catch (...) {
    // Not even the failure could be told: no memory is left. The reply fails
    // when its last copy goes.
  }
}

bool acceptConnection(const std::weak_ptr<XPCListenerDelegate> &delegate, XPCListener &listener,
                      const std::shared_ptr<XPCConnection> &connection) noexcept {
  try {
    auto held = delegate.lock();
    return held && held->listenerShouldAcceptNewConnection(listener, connection);
  } catch (const std::exception &exception) {
    Log("A connection is refused: %@", exception.what());
    return false;
  }
}

} // namespace NS
