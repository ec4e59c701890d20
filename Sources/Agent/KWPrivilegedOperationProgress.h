// The receiver of progress text, which a client exports back to the agent.
#pragma once

#include "Service/XPCConnection.h"

#include <memory>
#include <string>

namespace kw {

class KWPrivilegedOperationProgress : public NS::XPCObject {
public:
  static std::shared_ptr<const NS::XPCInterface> interface();

  // Returns a proxy of the receiver at the other end of a connection. It holds
  // the connection weakly, and silently drops text once the connection is gone.
  static std::unique_ptr<KWPrivilegedOperationProgress>
  remoteObjectProxy(std::weak_ptr<NS::XPCConnection> connection);

  // Sends a chunk of a running tool's standard output. Does not wait for the
  // client. Any thread may call it.
  virtual void receiveNewOutput(const std::string &output) = 0;
};

} // namespace kw
