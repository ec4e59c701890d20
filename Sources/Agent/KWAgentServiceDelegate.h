// Accepts every connection and gives it an exported object of its own. The
// system's bus policy decides which clients can reach the agent.
//
// Stateless; lives as long as the process.
#pragma once

#include "Service/XPCListener.h"

#include <memory>

namespace kw {

class KWAgentServiceDelegate : public NS::XPCListenerDelegate {
public:
  // Always true.
  bool
  listenerShouldAcceptNewConnection(NS::XPCListener &listener,
                                    const std::shared_ptr<NS::XPCConnection> &connection) override;
};

} // namespace kw
