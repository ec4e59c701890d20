// The progress protocol and the proxy of a client's receiver.
#include "Agent/KWPrivilegedOperationProgress.h"

#include "Protocol/BusNames.h"

#include <utility>

namespace kw {
namespace {

constexpr const char *receiveNewOutputSelector = "receiveNewOutput:";

class RemoteProgress final : public KWPrivilegedOperationProgress {
public:
  explicit RemoteProgress(std::weak_ptr<NS::XPCConnection> connection)
      : connection_(std::move(connection)) {}

  void receiveNewOutput(const std::string &output) override {
    if (auto connection = connection_.lock())
      connection->sendToRemoteObject(receiveNewOutputSelector, {output});
  }

private:
  const std::weak_ptr<NS::XPCConnection> connection_;
};

} // namespace

std::shared_ptr<const NS::XPCInterface> KWPrivilegedOperationProgress::interface() {
  static const auto shared = std::make_shared<const NS::XPCInterface>(
      NS::XPCInterface{kOutputInterface,
                       {{.selector = receiveNewOutputSelector,
                         .member = kOutputMember,
                         .arguments = {{"output", NS::XPCKind::String}},
                         .oneWay = true}}});
  return shared;
}

std::unique_ptr<KWPrivilegedOperationProgress>
KWPrivilegedOperationProgress::remoteObjectProxy(std::weak_ptr<NS::XPCConnection> connection) {
  return std::make_unique<RemoteProgress>(std::move(connection));
}

} // namespace kw
