// Waits for clients under a well-known name and passes each new connection to
// its delegate.
#pragma once

#include "Service/XPCConnection.h"

#include <memory>
#include <string>
#include <string_view>

namespace NS {

class XPCListener;

class XPCListenerDelegate {
public:
  virtual ~XPCListenerDelegate() = default;
  // Configures and resumes the connection, or returns false to refuse it.
  // Called at a client's first message, for one connection at a time, on a
  // thread of the listener; must not block.
  virtual bool
  listenerShouldAcceptNewConnection(XPCListener &listener,
                                    const std::shared_ptr<XPCConnection> &connection) = 0;
};

class XPCListener {
public:
  // Stops listening; requests under way run to their end without an answer.
  virtual ~XPCListener() = default;

  // On hosts with several places for names, the bus is the one that registers
  // the name: "system", "session", or an address.
  static std::unique_ptr<XPCListener> listenerWithMachServiceName(std::string_view name,
                                                                  std::string_view bus);

  // Held weakly; without a delegate every connection is refused.
  virtual void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) = 0;

  // The interfaces for introspection, before any connection exists. Call it
  // before resume.
  virtual void announce(std::shared_ptr<const XPCInterface> exported,
                        std::shared_ptr<const XPCInterface> remote) = 0;

  // Takes the name and begins to deliver, on threads of its own. Raises
  // InternalInconsistencyException, with a reason for the user, when the name
  // is taken or cannot be registered. When the connection to the bus breaks
  // later, the process exits with status 1.
  virtual void resume() = 0;
};

} // namespace NS
