// The listener on the platform's transport, which delivers the requests of each
// connection in order, on a queue of the connection's own.
#include "Service/XPCListener.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Base/macOS/Retained.h"
#include "Protocol/macOS/XPCValues.h"
#include "Service/Internal/RequestInvocation.h"
#include "Service/macOS/XPCExportedObject.h"

#include <mutex>
#include <string>
#include <utility>

namespace NS {
namespace {

constexpr const char *receiveNewOutputSelector = "receiveNewOutput:";

class PlatformConnection final : public XPCConnection,
                                 public std::enable_shared_from_this<PlatformConnection> {
public:
  explicit PlatformConnection(NSXPCConnection *connection)
      : connection_(connection), requester_{[connection effectiveUserIdentifier],
                                            [connection processIdentifier]} {}

  // The platform's connection keeps the exported object, which keeps this one:
  // the end of the connection breaks the circle.
  void watchItsEnd() {
    std::weak_ptr<PlatformConnection> weakly = weak_from_this();
    [connection_.get() setInvalidationHandler:^{
      if (auto self = weakly.lock())
        self->end();
    }];
  }

  void setExportedInterface(std::shared_ptr<const XPCInterface> interface) override {
    [current().get() setExportedInterface:platformInterface(*interface)];
    std::lock_guard lock(mutex_);
    exported_ = std::move(interface);
  }
  void setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) override {
    [current().get() setRemoteObjectInterface:platformInterface(*interface)];
    std::lock_guard lock(mutex_);
    remote_ = std::move(interface);
  }
  void setExportedObject(std::shared_ptr<XPCObject> object) override {
    @autoreleasepool {
      id<KWPrivilegedOperation> exported = exportedOperations(
          {exportedInterface(), std::move(object), shared_from_this(), requester_});
      [current().get() setExportedObject:exported];
    }
  }
  void resume() override { [current().get() resume]; }
  void suspend() override { [current().get() suspend]; }

  void sendToRemoteObject(const std::string &selector, XPCValues arguments) override;
  std::int32_t processIdentifier() const override { return requester_.process; }
  std::uint32_t effectiveUserIdentifier() const override { return requester_.user; }

private:
  static NSXPCInterface *platformInterface(const XPCInterface &interface) {
    return [NSXPCInterface interfaceWithProtocol:protocolOfInterface(interface.name)];
  }

  // nil once the connection has ended.
  Retained<NSXPCConnection *> current() const {
    std::lock_guard lock(mutex_);
    return connection_;
  }
  std::shared_ptr<const XPCInterface> exportedInterface() const {
    std::lock_guard lock(mutex_);
    return exported_;
  }
  bool isRemoteSelector(const std::string &selector) const {
    std::lock_guard lock(mutex_);
    return selector == receiveNewOutputSelector && remote_ && remote_->methodWithSelector(selector);
  }
  // Releases the connection only after the lock, since its release may call back.
  void end() {
    Retained<NSXPCConnection *> ended;
    std::lock_guard lock(mutex_);
    std::swap(ended, connection_);
  }

  mutable std::mutex mutex_;
  Retained<NSXPCConnection *> connection_;
  std::shared_ptr<const XPCInterface> exported_;
  std::shared_ptr<const XPCInterface> remote_;
  const XPCRequester requester_;
};

void PlatformConnection::sendToRemoteObject(const std::string &selector, XPCValues arguments) {
  if (!isRemoteSelector(selector))
    return Log("A client's object does not answer %@", selector);
  @autoreleasepool {
    // Text for a client that is gone is lost.
    id<KWPrivilegedOperationProgress> client =
        [current().get() remoteObjectProxyWithErrorHandler:^(NSError *){
        }];
    [client receiveNewOutput:platformText(arguments.at(0))];
  }
}

} // namespace
} // namespace NS

// Answers the platform's listener when a new connection comes.
@interface KWListenerDelegate : NSObject <NSXPCListenerDelegate> {
@public
  NS::XPCListener *listener; // which outlives this object's use
  std::weak_ptr<NS::XPCListenerDelegate> *delegate;
}
@end

@implementation KWListenerDelegate
- (void)dealloc {
  delete delegate;
  [super dealloc];
}

- (BOOL)listener:(NSXPCListener *)platformListener
    shouldAcceptNewConnection:(NSXPCConnection *)connection {
  static_cast<void>(platformListener);
  auto accepted = std::make_shared<NS::PlatformConnection>(connection);
  accepted->watchItsEnd();
  return NS::acceptConnection(*delegate, *listener, accepted) ? YES : NO;
}
@end

namespace NS {
namespace {

class PlatformListener final : public XPCListener {
public:
  explicit PlatformListener(std::string_view name)
      : delegate_(Retained<KWListenerDelegate *>::adopting([[KWListenerDelegate alloc] init])) {
    @autoreleasepool {
      listener_ = Retained<NSXPCListener *>::adopting(
          [[NSXPCListener alloc] initWithMachServiceName:platformText(std::string(name))]);
    }
    delegate_.get()->listener = this;
    delegate_.get()->delegate = new std::weak_ptr<XPCListenerDelegate>;
  }
  ~PlatformListener() override {
    [listener_.get() setDelegate:nil];
    [listener_.get() invalidate];
  }
  PlatformListener(const PlatformListener &) = delete;
  PlatformListener &operator=(const PlatformListener &) = delete;

  void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) override {
    *delegate_.get()->delegate = std::move(delegate);
  }

  // The transport describes no interface to a stranger.
  void announce(std::shared_ptr<const XPCInterface> /*exported*/,
                std::shared_ptr<const XPCInterface> /*remote*/) override {}

  // Whether the name can be had is between launchd and its job list: a process
  // that is not its job gets no connection.
  void resume() override {
    [listener_.get() setDelegate:delegate_.get()];
    [listener_.get() resume];
  }

private:
  const Retained<KWListenerDelegate *> delegate_;
  Retained<NSXPCListener *> listener_;
};

} // namespace

// The platform has one place for names.
std::unique_ptr<XPCListener> XPCListener::listenerWithMachServiceName(std::string_view name,
                                                                      std::string_view /*bus*/) {
  return std::make_unique<PlatformListener>(name);
}

} // namespace NS
