// A connection to the bus that carries messages to the agent and replies back.
// Only this part of the client depends on the transport.
//
// One thread owns it; any thread may call wake().
#pragma once

#include "Client/ClientError.h"
#include "Client/Request.h"
#include "Protocol/XPCInterface.h"

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
  // The number and kinds of the values of a good reply.
  std::vector<NS::XPCKind> replyKinds{};
  // The agent may end instead of replying. A reply without values then comes
  // when the agent's name has no owner any more.
  bool mayEndAgent = false;
  // Chunks of progress may come before the reply.
  bool hasProgress = false;
  // The flag at the head of a reply to a request that was done.
  bool flagWhenDone = true;
  // The agent can cancel its work, and its reply then carries only the flag.
  bool stopsWithoutReason = false;
  // The agent reports its progress while it runs.
  bool isFollowed = false;
};

struct ConnectionOptions {
  bool endRequestsOnLeaving = false; // the connection asks the agent for this first
};

class AgentConnection {
public:
  using Clock = std::chrono::steady_clock;
  using Number = std::uint64_t; // of a message, chosen by its sender

  // Takes the messages that have arrived. Its members must not throw, nor use
  // the connection.
  class Receiver {
  public:
    virtual ~Receiver() = default;
    virtual void received(Number number, NS::XPCValues values) = 0;
    virtual void failed(Number number, const ClientError &error) = 0;
    // The progress belongs to the first message with progress that is not
    // answered yet.
    virtual void progressed(const std::string &chunk) = 0;
    virtual void advanced(Number number, const RequestProgress &progress) = 0;
    // The connection has asked the agent to cancel the message before it had an
    // outcome. The agent does so if it still can.
    virtual void isBeingCancelled(Number number) = 0;
    // The agent cannot cancel the message, since it is too old to know such a
    // request: its reply comes when the work is done.
    virtual void couldNotCancel(Number number) = 0;
  };

  virtual ~AgentConnection() = default;
  // "system", "session" or a bus address. Does not block: the bus may accept the
  // connection later. Throws ClientError.
  static std::unique_ptr<AgentConnection> open(const std::string &bus,
                                               const ConnectionOptions &options = {});

  // Tells whether the bus has accepted the connection; wait() returns when it
  // does. Before that no message may be sent.
  virtual bool isAccepted() { return true; }
  // Blocks until then. Throws ClientError when the bus refuses, of kind
  // DeadlinePassed at the given time, of kind Cancelled when the function, which it
  // calls meanwhile, returns false; only the destruction is allowed then.
  virtual void waitUntilAccepted(std::optional<Clock::time_point> /*until*/,
                                 const std::function<bool()> & /*goesOn*/) {}

  // Sends the message. wait() hands over its one outcome later, or none when
  // the connection ends first. Throws ClientError when the message cannot be
  // sent: of kind BadArgument by a fault of the message, of another kind by a
  // fault of the connection.
  virtual void send(Number number, const AgentMessage &message) = 0;
  // Asks the agent to cancel a sent message without an outcome. Its outcome
  // still comes. Throws ClientError when the connection has ended.
  virtual void cancel(Number number) = 0;
  // Hands over the messages that have arrived. Without any it waits until one
  // arrives, until wake() or until the given time. Throws ClientError when the
  // connection has ended; only its destruction is allowed then.
  virtual void wait(Receiver &receiver, std::optional<Clock::time_point> until) = 0;
  // From any thread: the wait under way returns, or the next one at once.
  virtual void wake() = 0;
};

} // namespace kw
