// One client's connection, as the listener hands it to its delegate.
//
// Requests of one connection are delivered one at a time, in the order in
// which they came; those of different connections at the same time. All
// members may be called from any thread.
#pragma once

#include "Foundation/XPCInterface.h"

#include <cstdint>
#include <memory>
#include <string>

namespace NS {

class XPCConnection {
public:
  virtual ~XPCConnection() = default;

  // What the client may call, and what it serves in return. To be set before
  // the first resume.
  virtual void setExportedInterface(std::shared_ptr<const XPCInterface> interface) = 0;
  virtual void setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) = 0;
  // The connection owns the object until the client is gone and the last
  // request that reached it has ended.
  virtual void setExportedObject(std::shared_ptr<XPCObject> object) = 0;

  // A new connection is suspended. While it is, requests wait; the one being
  // handled is not disturbed.
  virtual void resume() = 0;
  virtual void suspend() = 0;

  // Sends a one-way message of the remote interface, named by its selector, to
  // the client's object. Lost without a word when the client is gone; does not
  // wait for it to be received.
  virtual void sendToRemoteObject(const std::string &selector, XPCValues arguments) = 0;

  // The client's process, and the user that it acts for, as the transport
  // vouches for them. Known when the first request is handled; -1 and the
  // largest number where the transport does not tell.
  virtual std::int32_t processIdentifier() const = 0;
  virtual std::uint32_t effectiveUserIdentifier() const = 0;
};

} // namespace NS
