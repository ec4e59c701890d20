// One request to the agent that is on its way, and what became of it.
//
// Thread-safe. A Request is a handle: copies stand for the same request, and
// letting go of the last one neither cancels the request nor waits for it.
#pragma once

#include "Client/ClientError.h"
#include "Client/Export.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace kw {

// How one request shall be treated; the default waits as long as it takes.
struct RequestOptions {
  // Counted from the call. When it has passed, the request ends with
  // DeadlinePassed; an agent that has begun goes on none the less.
  std::optional<std::chrono::milliseconds> timeLimit = std::nullopt;
};

// Either a reply or the reason why there is none.
template <typename Reply> class Result {
public:
  explicit Result(Reply reply) : held_(std::move(reply)) {}
  explicit Result(ClientError error) : held_(std::move(error)) {}

  bool hasReply() const { return std::holds_alternative<Reply>(held_); }
  // Throws the ClientError when there is no reply.
  const Reply &reply() const {
    if (const ClientError *failure = error())
      throw ClientError(*failure);
    return *std::get_if<Reply>(&held_);
  }
  // Null when there is a reply.
  const ClientError *error() const { return std::get_if<ClientError>(&held_); }

private:
  std::variant<Reply, ClientError> held_;
};

template <typename Reply> class KEEPWELL_EXPORT Request {
public:
  class KEEPWELL_LOCAL State;
  // Called on the client's own thread. It may start and cancel requests and
  // let go of the client, but must not wait, nor throw: either would be the
  // end of all other requests (waiting throws std::logic_error there).
  using Callback = std::function<void(const Result<Reply> &result)>;

  // Stands for no request; all but isValid() then throw std::logic_error.
  Request() = default;
  explicit Request(std::shared_ptr<State> state) : state_(std::move(state)) {}

  bool isValid() const { return state_ != nullptr; }
  // Whether wait() would return at once.
  bool isEnded() const;
  // Blocks until the request has ended. The result lives as long as a copy of
  // this handle.
  const Result<Reply> &wait() const;
  // The same for a limited time; whether the request has ended. The request
  // itself is not touched by the limit.
  bool waitFor(std::chrono::milliseconds time) const;
  // Blocks until the reply; throws ClientError when there is none.
  Reply get() const;

  // Has the callback called once the request has ended: on the client's
  // thread, or at once on the calling one if it has ended already. Waiting
  // threads may wake before it is called. Several are called in order.
  const Request &then(Callback callback) const;
  // The request is no longer waited for and ends with Cancelled, unless its
  // reply comes first. One that was not sent yet never will be; an agent that
  // has it carries it out none the less. Does not block.
  void cancel() const;

private:
  State &state() const;

  std::shared_ptr<State> state_;
};

} // namespace kw
