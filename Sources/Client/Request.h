// One request to the agent that is under way, and its result.
//
// Thread-safe. A Request is a handle: copies refer to the same request. The
// destruction of the last one neither cancels the request nor waits for it.
#pragma once

#include "Client/ClientError.h"
#include "Client/Export.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace kw {

struct RequestMaker;

// The agent's progress with a request that walks a tree.
struct RequestProgress {
  std::uint64_t items = 0; // that the agent has dealt with
  std::uint64_t bytes = 0; // that these items held
  std::string path{};      // a path that the agent was at since the last report
};

// The options of one request; by default it waits without a limit.
struct RequestOptions {
  // Counted from the call. After it the request ends with DeadlinePassed; an
  // agent that has the request goes on with it.
  std::optional<std::chrono::milliseconds> timeLimit = std::nullopt;
  // The client calls it while the agent works on the request, a few times a
  // second at most, under the rules of a callback; it may leave reports out. An
  // agent too old for it reports nothing.
  std::function<void(const RequestProgress &)> progress = nullptr;
};

// Either a reply or the reason why there is no reply.
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
  // The client calls it on its own thread, where all signals are blocked. It
  // may start and cancel requests and destroy the client. It must not wait,
  // since no reply could arrive then: waiting throws std::logic_error there. An
  // exception that it throws goes only to ClientOptions::callbackFailed, or in
  // a line to standard error; the client still calls all other callbacks.
  using Callback = std::function<void(const Result<Reply> &result)>;

  // Refers to no request; all members but isValid() then throw
  // std::logic_error. They also do so in a forked child, where no reply can
  // arrive.
  Request() = default;

  bool isValid() const { return state_ != nullptr; }
  // Tells whether wait() would return at once.
  bool isEnded() const;
  // Blocks until the request has ended. The result lives as long as a copy of
  // this handle.
  const Result<Reply> &wait() const;
  // Blocks for a limited time and tells whether the request has ended. The
  // limit does not affect the request itself.
  bool waitFor(std::chrono::milliseconds time) const;
  // Blocks until the reply arrives; throws ClientError when the request ends
  // without one.
  Reply get() const;

  // Has the callback called once the request has ended: on the client's thread,
  // or at once on the calling thread if it has ended already. Waiting threads
  // may wake before the call. Several callbacks are called in order. Throws
  // std::invalid_argument for an empty callback.
  const Request &then(Callback callback) const;
  // Cancels the request, which still ends as any other: wait() gives its
  // result. Does not block.
  // - A request that was not sent yet never will be: Cancelled, without effect.
  // - A request that the agent has ends with the agent's answer. Cancelled then
  //   means that the agent stopped, or never began, and does no more. The part
  //   done by then stays done, so the effect is unknown. A reply means that the
  //   agent had done the work, wholly or as far as the reply says, before it
  //   could stop: it reports removed items as removed. A request for which the
  //   agent runs a tool runs to its end.
  // - An agent too old to cancel goes on: Cancelled at once, with an unknown
  //   effect.
  void cancel() const;

private:
  friend struct RequestMaker;
  explicit Request(std::shared_ptr<State> state) : state_(std::move(state)) {}
  State &state() const;

  std::shared_ptr<State> state_;
};

} // namespace kw
