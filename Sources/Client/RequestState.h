// The shared state of a Request: its typed result, and those who wait for it.
#pragma once

#include "Client/Request.h"
#include "Client/RequestEngine.h"
#include "Foundation/Base/SaturatedTime.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <vector>

namespace kw {

// The time at which a limit that begins now has passed; none without a limit.
inline std::optional<PendingRequest::Clock::time_point>
deadlineAfter(std::optional<std::chrono::milliseconds> limit) {
  if (!limit)
    return std::nullopt;
  return NS::saturatedSum(PendingRequest::Clock::now(), *limit);
}

template <typename Reply> class Request<Reply>::State final : public PendingRequest {
public:
  // Called on the engine's thread with values of the kinds that the message
  // names.
  using Decode = std::function<Reply(NS::XPCValues values)>;
  using Output = std::function<void(const std::string &chunk)>;

  State(AgentMessage message, const RequestOptions &options, Decode decode,
        const std::shared_ptr<RequestEngine> &engine, Output output)
      : PendingRequest(std::move(message), deadlineAfter(options.timeLimit)),
        decode_(std::move(decode)), output_(std::move(output)), progress_(options.progress),
        engine_(engine), guard_(engine->guard()),
        noMemory_(ClientError::Kind::BadReply, "", "no memory is left for the reply"),
        misread_(ClientError::Kind::BadReply, "", "the agent's reply is not understood") {}

  void succeed(NS::XPCValues values) noexcept override {
    std::optional<Reply> reply;
    try {
      reply.emplace(decode_(std::move(values)));
    } catch (const std::bad_alloc &) {
      return fail(noMemory_);
    } catch (const std::bad_variant_access &) { // such as a nil text of macOS's transport
      return fail(misread_);
    }
    end(Result<Reply>(std::move(*reply)));
  }
  void fail(const ClientError &error) noexcept override { end(Result<Reply>(error)); }
  void progress(const std::string &chunk) noexcept override {
    if (output_)
      guard_->call(output_, chunk);
  }
  void advance(const RequestProgress &progress) noexcept override {
    if (progress_)
      guard_->call(progress_, progress);
  }

  bool isEnded() const {
    std::lock_guard lock(mutex_);
    return result_.has_value();
  }

  const Result<Reply> &wait() {
    std::unique_lock lock(mutex_);
    refuseToBlock();
    ended_.wait(lock, [this] { return result_.has_value(); });
    return *result_;
  }

  bool waitFor(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    refuseToBlock();
    return ended_.wait_until(lock, NS::saturatedSum(Clock::now(), time),
                             [this] { return result_.has_value(); });
  }

  void then(Callback callback) {
    if (!callback)
      throw std::invalid_argument("there is no callback");
    {
      std::lock_guard lock(mutex_);
      if (!result_ || !callbacksAreDone_) {
        callbacks_.push_back(std::move(callback));
        return;
      }
    }
    guard_->call(callback, *result_);
  }

  static void cancel(const std::shared_ptr<State> &state) {
    if (auto engine = state->engine_.lock())
      engine->cancel(state);
  }

  // In a forked child no thread brings the reply, and the mutex may be locked
  // for ever.
  bool isOfThisProcess() const {
    auto engine = engine_.lock();
    return !engine || engine->isOfThisProcess();
  }

private:
  // The caller holds the mutex. The engine's thread brings the reply, so it
  // must not wait for it.
  void refuseToBlock() const {
    if (result_)
      return;
    if (auto engine = engine_.lock(); engine && engine->isCalledOnOwnThread())
      throw std::logic_error("a callback must not wait for another request");
  }

  void end(Result<Reply> result) {
    {
      std::lock_guard lock(mutex_);
      result_.emplace(std::move(result));
    }
    ended_.notify_all();
    // Callbacks added during this loop run after the present ones.
    for (std::vector<Callback> due = takeCallbacks(); !due.empty(); due = takeCallbacks())
      for (const Callback &callback : due)
        guard_->call(callback, *result_);
  }

  std::vector<Callback> takeCallbacks() {
    std::lock_guard lock(mutex_);
    callbacksAreDone_ = callbacks_.empty();
    return std::exchange(callbacks_, {});
  }

  const Decode decode_;
  const Output output_;
  const std::function<void(const RequestProgress &)> progress_;
  const std::weak_ptr<RequestEngine> engine_;
  const std::shared_ptr<const CallbackGuard> guard_;
  const ClientError noMemory_, misread_; // made before memory can run out
  mutable std::mutex mutex_;
  std::condition_variable ended_;
  std::optional<Result<Reply>> result_; // never changes once it is there
  std::vector<Callback> callbacks_;
  bool callbacksAreDone_ = false;
};

// Only this class makes handles.
struct RequestMaker {
  template <typename Reply>
  static Request<Reply> make(std::shared_ptr<typename Request<Reply>::State> state) {
    return Request<Reply>(std::move(state));
  }
};

} // namespace kw
