// Makes a client over connections of the caller's making, such as fakes.
#pragma once

#include "Client/Client.h"
#include "Client/RequestEngine.h"

namespace kw {

struct ClientMaker {
  // Makes the first connection at once, and another whenever one has ended.
  static std::unique_ptr<Client> make(RequestEngine::Connector connector,
                                      const ClientOptions &options = {});
};

} // namespace kw
