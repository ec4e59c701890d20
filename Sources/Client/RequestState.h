// What stands behind a Request: what the engine brings back, typed, and those
// who wait for it.
#pragma once

#include "Client/Request.h"
#include "Client/RequestEngine.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace kw {

template <typename Reply> class Request<Reply>::State final : public PendingRequest {
public:
  // Called on the engine's thread with values of the kinds that the message
  // asks for.
  using Decode = std::function<Reply(NS::XPCValues values)>;
  using Progress = std::function<void(const std::string &chunk)>;

  State(AgentMessage message, const RequestOptions &options, Decode decode,
        std::weak_ptr<RequestEngine> engine, Progress progress)
      : PendingRequest(std::move(message), deadline(options)), decode_(std::move(decode)),
        progress_(std::move(progress)), engine_(std::move(engine)) {}

  void succeed(NS::XPCValues values) override { end(Result<Reply>(decode_(std::move(values)))); }
  void fail(const ClientError &error) override { end(Result<Reply>(error)); }
  void progress(const std::string &chunk) override {
    if (progress_)
      progress_(chunk);
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
    return ended_.wait_for(lock, time, [this] { return result_.has_value(); });
  }

  void then(Callback callback) {
    {
      std::lock_guard lock(mutex_);
      if (!result_ || !callbacksAreDone_) {
        callbacks_.push_back(std::move(callback));
        return;
      }
    }
    callback(*result_);
  }

  static void cancel(const std::shared_ptr<State> &state) {
    if (auto engine = state->engine_.lock())
      engine->cancel(state);
  }

private:
  static std::optional<Clock::time_point> deadline(const RequestOptions &options) {
    if (!options.timeLimit)
      return std::nullopt;
    auto now = Clock::now();
    auto longest = std::chrono::floor<std::chrono::milliseconds>(Clock::time_point::max() - now);
    return now + std::min(*options.timeLimit, longest);
  }

  // The mutex held. The thread that would have to bring the reply cannot wait
  // for it.
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
    // Until the last is done, those that come go behind it.
    for (std::vector<Callback> due = takeCallbacks(); !due.empty(); due = takeCallbacks())
      for (const Callback &callback : due)
        callback(*result_);
  }

  std::vector<Callback> takeCallbacks() {
    std::lock_guard lock(mutex_);
    callbacksAreDone_ = callbacks_.empty();
    return std::exchange(callbacks_, {});
  }

  const Decode decode_;
  const Progress progress_;
  const std::weak_ptr<RequestEngine> engine_;
  mutable std::mutex mutex_;
  std::condition_variable ended_;
  std::optional<Result<Reply>> result_; // never changes once it is there
  std::vector<Callback> callbacks_;
  bool callbacksAreDone_ = false;
};

} // namespace kw
