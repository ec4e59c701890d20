// One client's connection, as the listener passes it to its delegate.
//
// The listener delivers requests of one connection one at a time, in the order
// of their arrival, and those of different connections at the same time. Any
// thread may call all members.
#pragma once

#include "Protocol/XPCInterface.h"

#include <cstdint>
#include <memory>
#include <string>

namespace NS {

class XPCConnection {
public:
  virtual ~XPCConnection() = default;

  // The interface for the client, and the interface that it serves in return.
  // Set both before the first resume.
  virtual void setExportedInterface(std::shared_ptr<const XPCInterface> interface) = 0;
  virtual void setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) = 0;
  // The connection owns the object until the client is gone and the last of its
  // requests has ended.
  virtual void setExportedObject(std::shared_ptr<XPCObject> object) = 0;

  // Suspensions are counted, and a new connection has one. While one is left,
  // requests wait; the one being handled goes on.
  virtual void resume() = 0;
  virtual void suspend() = 0;

  // Sends a one-way message of the remote interface, named by its selector, to
  // the client's object. Does not wait for its receipt; the message is silently
  // lost when the client is gone.
  virtual void sendToRemoteObject(const std::string &selector, XPCValues arguments) = 0;

  // The client's process, and the user that it acts for, as the transport
  // vouches for them. Known during the first request and later; -1 and the
  // largest number when the transport does not know them.
  virtual std::int32_t processIdentifier() const = 0;
  virtual std::uint32_t effectiveUserIdentifier() const = 0;
};

} // namespace NS
