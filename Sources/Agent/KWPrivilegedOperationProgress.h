// What a client exports back to the agent: the receiver of progress text.
#pragma once

#include "Foundation/XPCConnection.h"

#include <memory>
#include <string>

namespace kw {

class KWPrivilegedOperationProgress : public NS::XPCObject {
public:
  static std::shared_ptr<const NS::XPCInterface> interface();

  // The receiver at the other end of a connection. It holds the connection
  // weakly: once that is gone, what is sent is lost without a word.
  static std::unique_ptr<KWPrivilegedOperationProgress>
  remoteObjectProxy(std::weak_ptr<NS::XPCConnection> connection);

  // A chunk of a running tool's standard output. Does not wait for the
  // client; may be called from any thread.
  virtual void receiveNewOutput(const std::string &output) = 0;
};

} // namespace kw
