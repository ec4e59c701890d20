// One request to the agent that is on its way, and what became of it.
//
// Thread-safe. A Request is a handle: copies stand for the same request, and
// letting go of the last one neither cancels the request nor waits for it.
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

// How far the agent has come with a request that walks a tree.
struct RequestProgress {
  std::uint64_t items = 0; // that it has dealt with
  std::uint64_t bytes = 0; // that these held
  std::string path{};      // that it was at, at some time since the last report
};

// How one request shall be treated; the default waits as long as it takes.
struct RequestOptions {
  // Counted from the call. When it has passed, the request ends with
  // DeadlinePassed; an agent that has it goes on with it none the less.
  std::optional<std::chrono::milliseconds> timeLimit = std::nullopt;
  // Called while the agent works on the request, a few times a second at most,
  // under the same rules as a callback; reports may be left out. An agent too
  // old for it reports nothing.
  std::function<void(const RequestProgress &)> progress = nullptr;
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
  // Called on the client's own thread, where all signals are blocked. It may
  // start and cancel requests and let go of the client, but must not wait, or
  // no reply could come any more: waiting throws std::logic_error there.
  // An exception that it throws goes to ClientOptions::callbackFailed, or in a
  // line to standard error, and nowhere else; all other callbacks are called.
  using Callback = std::function<void(const Result<Reply> &result)>;

  // Stands for no request; all but isValid() then throw std::logic_error. So
  // they do in a forked child, where no reply can come.
  Request() = default;

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
  // threads may wake before it is called. Several are called in order. Throws
  // std::invalid_argument when there is no callback.
  const Request &then(Callback callback) const;
  // Cancels the request, which still ends as any other does: wait() for it to
  // learn how. Does not block.
  // - One that was not sent yet never will be: Cancelled, without effect.
  // - One that the agent has ends with the agent's answer. Cancelled then means
  //   that the agent stopped, or never began, and does no more; what it had
  //   done by then stays done, so the effect is unknown. A reply means that the
  //   agent had done the work, wholly or as far as the reply says, before it
  //   could stop: what was removed is reported as removed. A request for which
  //   the agent runs a tool runs to its end.
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
