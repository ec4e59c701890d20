// A client over connections of somebody else's making.
#pragma once

#include "Client/Client.h"
#include "Client/RequestEngine.h"

namespace kw {

struct ClientMaker {
  // The first connection is made at once, others whenever one has ended.
  static std::unique_ptr<Client> make(RequestEngine::Connector connector,
                                      const ClientOptions &options = {});
};

} // namespace kw
