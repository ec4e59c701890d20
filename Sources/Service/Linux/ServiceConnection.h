// One client of the listener: its queue, its permitted members, and the way
// back.
#pragma once

#include "Service/Linux/RequestQueue.h"
#include "Service/Linux/ServiceRequest.h"
#include "Service/RequestJournal.h"
#include "Service/XPCConnection.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace NS {

class ServiceConnection final : public XPCConnection {
public:
  // Sends a one-way message to this client; called from any thread.
  using Sender =
      std::function<void(const std::string &interface, const XPCMethod &method, XPCValues values)>;

  ServiceConnection(std::shared_ptr<WorkerPool> pool, RequestQueueLimits limits, Sender sender);
  ~ServiceConnection() override;

  void setExportedInterface(std::shared_ptr<const XPCInterface> interface) override;
  void setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) override;
  void setExportedObject(std::shared_ptr<XPCObject> object) override;
  void resume() override;
  void suspend() override;
  void sendToRemoteObject(const std::string &selector, XPCValues arguments) override;
  std::int32_t processIdentifier() const override;
  std::uint32_t effectiveUserIdentifier() const override;

  // Sets the client's process and user. Call it before any request is handled,
  // while the connection is suspended.
  void setRequester(XPCRequester requester);

  // Null when the client may not call such a member.
  const XPCMethod *methodWithMember(const std::string &member) const;
  // Queues a request for the method, which must be of this connection and have
  // an invoker. A prompt request whose turn has come is done before the return.
  // The handler runs with the progress of the request. It does not run when the
  // request is dropped before its turn; the reply is then not used. False, with
  // the reply not used either, when the queue is full.
  bool deliver(const XPCMethod &method, XPCValues arguments, XPCReply reply,
               std::shared_ptr<ServiceRequest> request = std::make_shared<ServiceRequest>());

private:
  struct Setup {
    std::shared_ptr<const XPCInterface> exported;
    std::shared_ptr<const XPCInterface> remote;
    std::shared_ptr<XPCObject> object;
  };
  Setup setup() const;

  const Sender sender_;
  const std::shared_ptr<RequestQueue> queue_;
  mutable std::mutex mutex_;
  Setup setup_;
  // Shared with the requests, which read it when they run.
  const std::shared_ptr<XPCRequester> requester_ =
      std::make_shared<XPCRequester>(XPCRequester{UINT32_MAX, -1});
};

} // namespace NS
