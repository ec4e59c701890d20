// The handle's calls, made once for each kind of reply.
#include "Client/Request.h"

#include "Client/Replies.h"
#include "Client/RequestState.h"

namespace kw {

template <typename Reply> auto Request<Reply>::state() const -> State & {
  if (!state_)
    throw std::logic_error("this handle stands for no request");
  if (!state_->isOfThisProcess())
    throw std::logic_error("a request of the parent process cannot be used in a forked child");
  return *state_;
}

template <typename Reply> bool Request<Reply>::isEnded() const {
  return state().isEnded();
}

template <typename Reply> const Result<Reply> &Request<Reply>::wait() const {
  return state().wait();
}

template <typename Reply> bool Request<Reply>::waitFor(std::chrono::milliseconds time) const {
  return state().waitFor(time);
}

template <typename Reply> Reply Request<Reply>::get() const {
  return wait().reply();
}

template <typename Reply> const Request<Reply> &Request<Reply>::then(Callback callback) const {
  state().then(std::move(callback));
  return *this;
}

template <typename Reply> void Request<Reply>::cancel() const {
  static_cast<void>(state());
  State::cancel(state_);
}

template class Request<AttemptReply>;
template class Request<EchoReply>;
template class Request<ExistenceReply>;
template class Request<FlagReply>;
template class Request<JobRemovalReply>;
template class Request<LogErasureReply>;
template class Request<RemovalReply>;
template class Request<RepairReply>;
template class Request<SizeReply>;
template class Request<TerminationReply>;

} // namespace kw
