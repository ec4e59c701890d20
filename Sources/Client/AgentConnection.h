// A connection to the bus that carries messages to the agent and replies back:
// what of the client depends on the transport.
//
// Belongs to one thread but for wake().
#pragma once

#include "Client/ClientError.h"
#include "Client/Request.h"
#include "Foundation/XPCInterface.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kw {

struct AgentMessage {
  std::string member;
  // Strings and arrays of strings.
  NS::XPCValues arguments{};
  // As many values and of the kinds that a good reply holds.
  std::vector<NS::XPCKind> replyKinds{};
  // The agent may end instead of replying, which then is a reply without
  // values: it comes when nobody owns the agent's name any more.
  bool mayEndAgent = false;
  // Chunks of progress may come before the reply.
  bool hasProgress = false;
  // The flag at the head of a reply to a request that was done.
  bool flagWhenDone = true;
  // Its work can be cancelled, and its reply then tells nothing but the flag.
  bool stopsWithoutReason = false;
  // How far it has come is to be told while it runs.
  bool isFollowed = false;
};

struct ConnectionOptions {
  bool endRequestsOnLeaving = false; // is asked of the agent before anything else
};

class AgentConnection {
public:
  using Clock = std::chrono::steady_clock;
  using Number = std::uint64_t; // of a message, chosen by who sends it

  // Takes what has arrived. Must not throw, nor use the connection.
  class Receiver {
  public:
    virtual ~Receiver() = default;
    virtual void received(Number number, NS::XPCValues values) = 0;
    virtual void failed(Number number, const ClientError &error) = 0;
    // Of the first message with progress that is not answered yet.
    virtual void progressed(const std::string &chunk) = 0;
    virtual void advanced(Number number, const RequestProgress &progress) = 0;
    // The agent was asked to cancel the message before it had an outcome, and
    // does so if it still can.
    virtual void isBeingCancelled(Number number) = 0;
    // The agent was asked to cancel the message and cannot, since it knows no
    // such thing: its reply comes when the work is done.
    virtual void couldNotCancel(Number number) = 0;
  };

  virtual ~AgentConnection() = default;
  // "system", "session" or a bus address. Throws ClientError.
  static std::unique_ptr<AgentConnection> open(const std::string &bus,
                                               const ConnectionOptions &options = {});

  // Sends the message; one outcome comes out of wait() later, or none when the
  // connection ends first. Throws ClientError when it cannot be sent: of kind
  // BadArgument when that is the message's fault, else the connection's.
  virtual void send(Number number, const AgentMessage &message) = 0;
  // Asks the agent to cancel a message that was sent and has no outcome yet.
  // Its outcome still comes. Throws ClientError when the connection has ended.
  virtual void cancel(Number number) = 0;
  // Hands over what has arrived. When nothing had, waits until something does,
  // until it is woken or until the time has come. Throws ClientError when the
  // connection has ended; nothing but its destruction is of use then.
  virtual void wait(Receiver &receiver, std::optional<Clock::time_point> until) = 0;
  // From any thread: the wait under way returns, or the next one at once.
  virtual void wake() = 0;
};

} // namespace kw
