// The listener on the message bus: asks its delegate about each new client of
// the service.
#include "Service/XPCListener.h"

#include "Service/Internal/RequestInvocation.h"
#include "Service/Linux/BusService.h"

#include <utility>

namespace NS {
namespace {

class BusListener final : public XPCListener {
public:
  BusListener(std::string name, std::string bus) : name_(std::move(name)), bus_(std::move(bus)) {}

  void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }

  void announce(std::shared_ptr<const XPCInterface> exported,
                std::shared_ptr<const XPCInterface> remote) override {
    exported_ = std::move(exported);
    remote_ = std::move(remote);
  }

  void resume() override {
    if (service_)
      return;
    service_ = std::make_unique<BusService>(
        name_, bus_, exported_, remote_, [this](const std::shared_ptr<XPCConnection> &connection) {
          return acceptConnection(delegate_, *this, connection);
        });
    service_->start();
  }

private:
  const std::string name_;
  const std::string bus_;
  std::weak_ptr<XPCListenerDelegate> delegate_;
  std::shared_ptr<const XPCInterface> exported_;
  std::shared_ptr<const XPCInterface> remote_;
  std::unique_ptr<BusService> service_; // last, so that its thread ends before all else
};

} // namespace

std::unique_ptr<XPCListener> XPCListener::listenerWithMachServiceName(std::string_view name,
                                                                      std::string_view bus) {
  return std::make_unique<BusListener>(std::string(name), std::string(bus));
}

} // namespace NS
