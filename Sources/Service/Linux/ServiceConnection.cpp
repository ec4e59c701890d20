// Passes queued requests to the exported object, and turns exceptions into
// outcomes.
#include "Service/Linux/ServiceConnection.h"

#include "Foundation/Base/Log.h"
#include "Protocol/Linux/BusValues.h"
#include "Service/Internal/RequestInvocation.h"

#include <utility>

namespace NS {
namespace {

// Copying more than this takes longer than passing it to another thread.
constexpr std::size_t promptBytes = std::size_t{16} << 10;

} // namespace

ServiceConnection::ServiceConnection(std::shared_ptr<WorkerPool> pool, RequestQueueLimits limits,
                                     Sender sender)
    : sender_(std::move(sender)), queue_(std::make_shared<RequestQueue>(std::move(pool), limits)) {}

ServiceConnection::~ServiceConnection() = default;

void ServiceConnection::setExportedInterface(std::shared_ptr<const XPCInterface> interface) {
  std::lock_guard lock(mutex_);
  setup_.exported = std::move(interface);
}

void ServiceConnection::setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) {
  std::lock_guard lock(mutex_);
  setup_.remote = std::move(interface);
}

void ServiceConnection::setExportedObject(std::shared_ptr<XPCObject> object) {
  std::lock_guard lock(mutex_);
  setup_.object = std::move(object);
}

void ServiceConnection::resume() {
  queue_->release();
}

void ServiceConnection::suspend() {
  queue_->hold();
}

void ServiceConnection::sendToRemoteObject(const std::string &selector, XPCValues arguments) {
  Setup current = setup();
  const XPCMethod *method = current.remote ? current.remote->methodWithSelector(selector) : nullptr;
  if (!method)
    Log("A client's object does not answer %@", selector);
  else
    sender_(current.remote->name, *method, std::move(arguments));
}

const XPCMethod *ServiceConnection::methodWithMember(const std::string &member) const {
  std::lock_guard lock(mutex_);
  return setup_.exported ? setup_.exported->methodWithMember(member) : nullptr;
}

bool ServiceConnection::deliver(const XPCMethod &method, XPCValues arguments, XPCReply reply,
                                std::shared_ptr<ServiceRequest> request) {
  std::size_t bytes = memoryOf(arguments);
  // The request owns the object, not the connection: the connection goes at
  // once with its client, and its requests still run.
  std::function<void()> work = [&method, current = setup(), arguments = std::move(arguments),
                                reply = std::move(reply), request = std::move(request),
                                requester = requester_] {
    if (!request->begin())
      return;
    Progress::Scope scope(request->progress);
    if (current.object)
      invokeRequest(method, *current.object, arguments, reply, *requester);
    else
      reply.fail("nothing is exported");
  };
  if (method.prompt && bytes <= promptBytes && queue_->runAtOnce(work))
    return true;
  return queue_->enqueue(std::move(work), bytes);
}

std::int32_t ServiceConnection::processIdentifier() const {
  return requester_->process;
}

std::uint32_t ServiceConnection::effectiveUserIdentifier() const {
  return requester_->user;
}

void ServiceConnection::setRequester(XPCRequester requester) {
  *requester_ = requester;
  queue_->setUser(requester.user);
}

ServiceConnection::Setup ServiceConnection::setup() const {
  std::lock_guard lock(mutex_);
  return setup_;
}

} // namespace NS
