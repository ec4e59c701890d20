// The thread of a client: takes started requests, sends as many as the limits
// allow, waits for replies.
//
// Any thread of the program starts a request: it allocates the request's entry
// first and then inserts it under the mutex. The engine's thread moves new
// entries into a map ordered by the number of the request. lastSent_ divides
// this map: entries up to it are with the agent, the others wait. The thread
// sends the next entry while the limits of requests and bytes allow it.
//
// An entry leaves the map in five ways: by its reply, its deadline, its
// cancellation, the loss of the connection, or the end of the client. A request
// that the agent has keeps its entry after its deadline, without the client's
// part, since it still counts against the limits. Lost connections end sent
// requests as interrupted, since the agent may have done them; requests that
// were not sent go over the next connection. They wait until the bus has accepted
// it; meanwhile the thread still handles deadlines and cancellations.
//
// A program cancels a request by a list that needs no memory. The engine then
// asks the agent, and the agent's answer ends the request.
#include "Client/RequestEngine.h"

#include <csignal>
#include <new>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kw {
namespace {

using Kind = ClientError::Kind;
using Effect = ClientError::Effect;

// The most requests without a reply at once. The bus allows a connection 128
// such calls, the agent 1024 requests and 64 MiB. Both refuse requests beyond
// their limits, so the rest waits here.
constexpr std::size_t mostSent = 64;
constexpr std::size_t mostSentBytes = std::size_t{8} << 20;

std::size_t textBytes(const NS::XPCValues &values) {
  std::size_t bytes = 0;
  for (const NS::XPCValue &value : values) {
    if (const auto *text = std::get_if<std::string>(&value))
      bytes += text->size();
    else if (const auto *texts = std::get_if<std::vector<std::string>>(&value))
      for (const std::string &each : *texts)
        bytes += each.size();
  }
  return bytes;
}

// A flag that says that all was done says more than the error beside it.
bool saysCancelled(const AgentMessage &message, bool isStopping, const NS::XPCValues &values) {
  if (!values.empty())
    if (const bool *flag = std::get_if<bool>(&values.front());
        flag && *flag == message.flagWhenDone)
      return false;
  for (const NS::XPCValue &value : values)
    if (const auto *error = std::get_if<NS::Error>(&value))
      return error->domain() == NS::CocoaErrorDomain && error->code() == NS::UserCancelledError;
  return isStopping && message.stopsWithoutReason;
}

// For as long as it lives the thread takes no signals, nor do those that it
// starts then.
class WithoutSignals {
public:
  WithoutSignals() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~WithoutSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  WithoutSignals(const WithoutSignals &) = delete;
  WithoutSignals &operator=(const WithoutSignals &) = delete;

private:
  sigset_t before_;
};

} // namespace

RequestEngine::Entry::Entry(std::shared_ptr<PendingRequest> which)
    : request(std::move(which)), bytes(textBytes(request->message_.arguments)),
      hasProgress(request->message_.hasProgress) {}

RequestEngine::Endings::Endings()
    : cancelled(Kind::Cancelled, "", "the request was cancelled"),
      cancelledLate(Kind::Cancelled, "", "the request was cancelled", Effect::Unknown),
      expired(Kind::DeadlinePassed, "", "the time allowed has passed"),
      expiredLate(Kind::DeadlinePassed, "", "the time allowed has passed", Effect::Unknown),
      abandoned(Kind::Cancelled, "", "the client went away"),
      abandonedLate(Kind::Cancelled, "", "the client went away", Effect::Unknown),
      noMemory(Kind::Unreachable, "", "no memory is left for the request"),
      interrupted(Kind::Interrupted, "", "no memory is left for the connection to the agent") {}

RequestEngine::RequestEngine(Connector connector, std::unique_ptr<AgentConnection> first,
                             CallbackGuard::Handler handler)
    : connector_(std::move(connector)), guard_(std::make_shared<CallbackGuard>(std::move(handler))),
      process_(::getpid()), connection_(std::move(first)) {}

RequestEngine::~RequestEngine() {
  if (thread_.joinable())
    thread_.join();
}

void RequestEngine::run() {
  WithoutSignals duringTheStart;
  try {
    thread_ = std::thread([self = shared_from_this()] {
      self->threadID_ = std::this_thread::get_id();
      self->loop();
    });
  } catch (const std::system_error &error) {
    throw ClientError(Kind::Unreachable, "", error.what());
  }
}

bool RequestEngine::isOfThisProcess() const {
  return process_ == ::getpid();
}

// The steps that need memory come first.
void RequestEngine::start(const std::shared_ptr<PendingRequest> &request) {
  if (!isOfThisProcess())
    throw ClientError(Kind::Unreachable, "", "a forked child needs a client of its own");
  PendingRequest &started = *request;
  Entries entry;
  Deadlines deadline;
  entry.try_emplace(0, request);
  if (started.deadline_)
    deadline.emplace(*started.deadline_, 0);
  auto entryNode = entry.extract(entry.begin());
  std::lock_guard lock(mutex_);
  started.number_ = entryNode.key() = ++lastNumber_;
  started_.insert(started_.end(), std::move(entryNode));
  if (!deadline.empty()) {
    auto deadlineNode = deadline.extract(deadline.begin());
    deadlineNode.value().second = lastNumber_;
    startedDeadlines_.insert(std::move(deadlineNode));
  }
  wakeLocked();
}

void RequestEngine::cancel(const std::shared_ptr<PendingRequest> &request) noexcept {
  std::lock_guard lock(mutex_);
  if (request->isGivenUp_.exchange(true))
    return;
  request->nextGivenUp_ = std::exchange(givenUp_, request);
  wakeLocked();
}

void RequestEngine::cancelAll() noexcept {
  if (!isOfThisProcess())
    return; // see stop()
  std::lock_guard lock(mutex_);
  givenUpTo_ = lastNumber_;
  wakeLocked();
}

// In a forked child the thread is not there, and the mutex may be locked for
// ever. The engine is left as it is, and is never destroyed: the thread's own
// reference to it stays.
void RequestEngine::stop() noexcept {
  if (!isOfThisProcess())
    return;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    wakeLocked();
  }
  if (isCalledOnOwnThread())
    thread_.detach(); // it shares the ownership of the engine
  else if (thread_.joinable())
    thread_.join();
}

bool RequestEngine::isCalledOnOwnThread() const {
  return threadID_ == std::this_thread::get_id();
}

// One wake is enough for all that comes before the thread looks again.
void RequestEngine::wakeLocked() {
  if (!std::exchange(mayWait_, false))
    return;
  changed_.notify_one();
  if (connection_)
    connection_->wake();
}

void RequestEngine::loop() noexcept {
  while (takeWork()) {
    expire();
    sendWhatMay();
    waitForWork();
  }
  endAll();
}

// False when the client is gone.
bool RequestEngine::takeWork() {
  std::unique_lock lock(mutex_);
  entries_.merge(started_);
  deadlines_.merge(startedDeadlines_);
  std::shared_ptr<PendingRequest> givenUp = std::move(givenUp_);
  bool stopping = stopping_;
  lock.unlock();
  cancelThose(std::move(givenUp));
  cancelUpTo(givenUpTo_);
  return !stopping;
}

// The newest comes first, and the oldest is to be cancelled first.
void RequestEngine::cancelThose(std::shared_ptr<PendingRequest> first) {
  std::shared_ptr<PendingRequest> turned;
  while (first) {
    std::shared_ptr<PendingRequest> next = std::move(first->nextGivenUp_);
    first->nextGivenUp_ = std::move(turned);
    turned = std::exchange(first, std::move(next));
  }
  while (turned) {
    cancelOne(turned->number_);
    turned = std::shared_ptr(std::move(turned->nextGivenUp_));
  }
}

void RequestEngine::cancelUpTo(Number last) {
  while (true) {
    auto next = entries_.upper_bound(cancelledUpTo_);
    if (next == entries_.end() || next->first > last)
      break;
    cancelledUpTo_ = next->first;
    cancelOne(cancelledUpTo_);
  }
  cancelledUpTo_ = last;
}

// A request that the agent has ends with the agent's answer.
void RequestEngine::cancelOne(Number number) {
  auto found = entries_.find(number);
  if (found == entries_.end() || !found->second.request)
    return;
  if (!isSent(number))
    return remove(number)->fail(endings_.cancelled);
  if (std::exchange(found->second.isCancelled, true))
    return;
  try {
    connection_->cancel(number);
  } catch (const ClientError &error) {
    loseConnection(error);
  } catch (const std::bad_alloc &) {
    couldNotCancel(number);
  }
}

bool RequestEngine::isGivenUp(Number number, const Entry &entry) const {
  return number <= givenUpTo_ || entry.request->isGivenUp_;
}

// A request that was sent keeps its place among those on their way, since the
// agent has it still.
void RequestEngine::forget(Number number, const ClientError &unsent, const ClientError &sent) {
  auto found = entries_.find(number);
  if (found == entries_.end() || !found->second.request)
    return;
  if (!isSent(number))
    return remove(number)->fail(unsent);
  std::shared_ptr<PendingRequest> request = std::move(found->second.request);
  if (request->deadline_)
    deadlines_.erase({*request->deadline_, number});
  request->fail(sent);
}

void RequestEngine::sendWhatMay() {
  while (true) {
    auto next = entries_.upper_bound(lastSent_);
    if (next == entries_.end() || !sendNext(next))
      return;
  }
}

// False when nothing more may be sent now. A callback may have cancelled the
// request since work was last taken.
bool RequestEngine::sendNext(Entries::iterator next) {
  Number number = next->first;
  const Entry &entry = next->second;
  if (isGivenUp(number, entry)) {
    remove(number)->fail(endings_.cancelled);
    return true; // the next may go
  }
  if (sent_ >= mostSent || (sent_ > 0 && sentBytes_ + entry.bytes > mostSentBytes))
    return false;
  if (!connect())
    return true; // all that waited has been refused
  if (!isAccepted())
    return false;
  try {
    connection_->send(number, entry.request->message_);
  } catch (const ClientError &error) {
    failedToSend(number, error);
    return true;
  } catch (const std::bad_alloc &) {
    remove(number)->fail(endings_.noMemory);
    return true;
  }
  lastSent_ = number;
  ++sent_;
  sentBytes_ += entry.bytes;
  return true;
}

// Without a connection it is sent over another, once.
void RequestEngine::failedToSend(Number number, const ClientError &error) {
  bool isAtFault = error.kind() == Kind::BadArgument;
  if (isAtFault || std::exchange(entries_.at(number).wasTried, true))
    remove(number)->fail(error);
  if (!isAtFault)
    loseConnection(error);
}

bool RequestEngine::connect() {
  if (connection_)
    return true;
  try {
    std::unique_ptr<AgentConnection> fresh = connector_();
    std::lock_guard lock(mutex_);
    connection_ = std::move(fresh);
  } catch (const ClientError &error) {
    endWaiting(error);
  } catch (const std::bad_alloc &) {
    endWaiting(endings_.noMemory);
  }
  return connection_ != nullptr;
}

bool RequestEngine::isAccepted() {
  isAccepted_ = isAccepted_ || connection_->isAccepted();
  return isAccepted_;
}

void RequestEngine::endWaiting(const ClientError &error) {
  for (auto next = entries_.upper_bound(lastSent_); next != entries_.end();
       next = entries_.upper_bound(lastSent_))
    remove(next->first)->fail(error);
}

void RequestEngine::endSent(const ClientError &error) {
  while (!entries_.empty() && isSent(entries_.begin()->first))
    if (auto request = remove(entries_.begin()->first))
      request->fail(error);
}

// The next connection can carry the requests that were not sent, unless the bus
// did not even accept this one.
void RequestEngine::loseConnection(const ClientError &error) {
  if (!dropConnection())
    return endWaiting(error);
  try {
    endSent(ClientError(Kind::Interrupted, error.name(), error.what()));
  } catch (const std::bad_alloc &) {
    endSent(endings_.interrupted);
  }
}

// Tells whether the bus had accepted it.
bool RequestEngine::dropConnection() {
  bool wasAccepted = std::exchange(isAccepted_, false);
  std::unique_ptr<AgentConnection> lost;
  std::lock_guard lock(mutex_);
  lost.swap(connection_);
  return wasAccepted;
}

// Returns the request of the entry; null when there is no entry, or the client
// no longer waits for it.
std::shared_ptr<PendingRequest> RequestEngine::remove(Number number) {
  auto found = entries_.find(number);
  if (found == entries_.end())
    return nullptr;
  if (isSent(number)) {
    --sent_;
    sentBytes_ -= found->second.bytes;
  }
  std::shared_ptr<PendingRequest> request = std::move(found->second.request);
  if (request && request->deadline_)
    deadlines_.erase({*request->deadline_, number});
  entries_.erase(found);
  return request;
}

void RequestEngine::expire() {
  while (!deadlines_.empty() && deadlines_.begin()->first <= Clock::now()) {
    Number number = deadlines_.begin()->second;
    deadlines_.erase(deadlines_.begin());
    forget(number, endings_.expired, endings_.expiredLate);
  }
}

std::optional<RequestEngine::Clock::time_point> RequestEngine::nextDeadline() const {
  if (deadlines_.empty())
    return std::nullopt;
  return deadlines_.begin()->first;
}

// Without a connection there is no request, and so no deadline to wait for.
void RequestEngine::waitForWork() {
  std::optional<Clock::time_point> until = nextDeadline();
  std::unique_lock lock(mutex_);
  if (!started_.empty() || givenUp_ || cancelledUpTo_ < givenUpTo_ || stopping_)
    until = Clock::time_point::min(); // handle arrived messages without waiting
  else
    mayWait_ = true;
  if (!connection_)
    return changed_.wait(lock, [this] { return !mayWait_; });
  lock.unlock();
  waitForArrivals(until);
  std::lock_guard again(mutex_);
  mayWait_ = false;
}

void RequestEngine::waitForArrivals(std::optional<Clock::time_point> until) {
  try {
    connection_->wait(*this, until);
  } catch (const ClientError &error) {
    loseConnection(error);
  } catch (const std::bad_alloc &) {
    if (dropConnection())
      endSent(endings_.interrupted);
    else
      endWaiting(endings_.noMemory);
  }
}

// A callback may start further requests, which end as well.
void RequestEngine::endAll() {
  do {
    endSent(endings_.abandonedLate);
    endWaiting(endings_.abandoned);
    takeWork();
  } while (!entries_.empty());
  dropConnection();
}

void RequestEngine::received(Number number, NS::XPCValues values) {
  auto found = entries_.find(number);
  bool isCancelled = found != entries_.end() && found->second.isCancelled;
  bool isStopping = isCancelled && found->second.isStopping;
  auto request = remove(number);
  if (!request)
    return;
  if (isCancelled && saysCancelled(request->message_, isStopping, values))
    request->fail(endings_.cancelledLate);
  else
    request->succeed(std::move(values));
}

void RequestEngine::failed(Number number, const ClientError &error) {
  if (auto request = remove(number))
    request->fail(error);
}

// The agent works on one request at a time, in order. Requests that the client
// no longer waits for count too.
void RequestEngine::progressed(const std::string &chunk) {
  for (const auto &[number, entry] : entries_) {
    if (!isSent(number) || !entry.hasProgress)
      continue;
    if (std::shared_ptr<PendingRequest> request = entry.request)
      request->progress(chunk);
    return;
  }
}

void RequestEngine::advanced(Number number, const RequestProgress &progress) {
  auto found = entries_.find(number);
  if (found == entries_.end())
    return;
  if (std::shared_ptr<PendingRequest> request = found->second.request)
    request->advance(progress);
}

void RequestEngine::isBeingCancelled(Number number) {
  if (auto found = entries_.find(number); found != entries_.end())
    found->second.isStopping = true;
}

void RequestEngine::couldNotCancel(Number number) {
  forget(number, endings_.cancelled, endings_.cancelledLate);
}

} // namespace kw
