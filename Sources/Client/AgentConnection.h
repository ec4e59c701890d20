// A connection to the agent over which one request at a time goes out and its
// reply is waited for: what of the client depends on the transport.
//
// Belongs to one thread at a time. Every call throws ClientError.
#pragma once

#include "Foundation/XPCInterface.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kw {

class AgentConnection {
public:
  using Chunk = std::function<void(const std::string &output)>;
  using ReplyKinds = std::vector<NS::XPCKind>;

  virtual ~AgentConnection() = default;
  // "system", "session" or a bus address.
  static std::unique_ptr<AgentConnection> open(const std::string &bus);

  // Sends the request and gives its reply, as many values and of the kinds
  // that the caller names. The arguments are strings and arrays of strings.
  virtual NS::XPCValues call(const std::string &member, const NS::XPCValues &arguments,
                             const ReplyKinds &reply) = 0;
  // The same, passing on each chunk of progress that arrives before the reply.
  virtual NS::XPCValues callWithProgress(const std::string &member, const ReplyKinds &reply,
                                         const Chunk &chunk) = 0;
  // Sends the request and waits until the agent's name has lost its owner.
  virtual void callUntilNameIsLost(const std::string &member) = 0;
};

} // namespace kw
