// The thread of a client: takes what was started, sends as much as may be on
// its way, waits for replies.
#include "Client/RequestEngine.h"

#include <utility>

namespace kw {
namespace {

// How much may be without a reply at once. The bus lets a connection have 128
// such calls, the agent 1024 requests and 64 MiB; what goes past a limit is
// refused, so the rest waits here.
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

} // namespace

RequestEngine::RequestEngine(Connector connector, std::unique_ptr<AgentConnection> first)
    : connector_(std::move(connector)), connection_(std::move(first)) {}

RequestEngine::~RequestEngine() {
  if (thread_.joinable())
    thread_.join();
}

void RequestEngine::run() {
  thread_ = std::thread([self = shared_from_this()] {
    self->threadID_ = std::this_thread::get_id();
    self->loop();
  });
}

void RequestEngine::start(std::shared_ptr<PendingRequest> request) {
  std::lock_guard lock(mutex_);
  started_.push_back(std::move(request));
  wakeLocked();
}

void RequestEngine::cancel(std::shared_ptr<PendingRequest> request) {
  std::lock_guard lock(mutex_);
  cancelled_.push_back(std::move(request));
  wakeLocked();
}

void RequestEngine::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    wakeLocked();
  }
  if (isCalledOnOwnThread())
    thread_.detach(); // it holds what it needs
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

// What a callback throws ends the program, as it would from any thread.
void RequestEngine::loop() {
  while (takeWork()) {
    expire();
    sendWhatMay();
    waitForWork();
  }
  endAll();
}

// False when the client is gone.
bool RequestEngine::takeWork() {
  std::vector<std::shared_ptr<PendingRequest>> started;
  std::vector<std::shared_ptr<PendingRequest>> cancelled;
  bool stopping = false;
  {
    std::lock_guard lock(mutex_);
    started.swap(started_);
    cancelled.swap(cancelled_);
    stopping = stopping_;
  }
  for (std::shared_ptr<PendingRequest> &request : started)
    add(std::move(request));
  for (const std::shared_ptr<PendingRequest> &request : cancelled)
    giveUp(request->number_, ClientError::Kind::Cancelled, "the request was given up");
  return !stopping;
}

void RequestEngine::add(std::shared_ptr<PendingRequest> request) {
  Number number = ++lastNumber_;
  request->number_ = number;
  if (request->deadline_)
    deadlines_.emplace(*request->deadline_, number);
  Entry entry;
  entry.bytes = textBytes(request->message_.arguments);
  entry.hasProgress = request->message_.hasProgress;
  entry.request = std::move(request);
  entries_.emplace(number, std::move(entry));
  waiting_.push_back(number);
}

// A request that was sent keeps its place among those on their way, since the
// agent has it still.
void RequestEngine::giveUp(Number number, ClientError::Kind kind, const char *reason) {
  auto found = entries_.find(number);
  if (found == entries_.end() || !found->second.request)
    return;
  std::shared_ptr<PendingRequest> request = found->second.request;
  ClientError::Effect effect = ClientError::Effect::None;
  if (found->second.isSent) {
    effect = ClientError::Effect::Unknown;
    if (request->deadline_)
      deadlines_.erase({*request->deadline_, number});
    found->second.request.reset();
  } else {
    remove(number);
  }
  request->fail(ClientError(kind, "", reason, effect));
}

void RequestEngine::sendWhatMay() {
  while (!waiting_.empty() && sendNext()) {
  }
}

// False when nothing more may be sent now.
bool RequestEngine::sendNext() {
  Number number = waiting_.front();
  auto found = entries_.find(number);
  if (found == entries_.end()) {
    waiting_.pop_front();
    return true;
  }
  Entry &entry = found->second;
  if (sent_ >= mostSent || (sent_ > 0 && sentBytes_ + entry.bytes > mostSentBytes))
    return false;
  if (!hasConnection())
    return true; // all that waited has been refused
  try {
    connection_->send(number, entry.request->message_);
  } catch (const ClientError &error) {
    if (error.kind() == ClientError::Kind::BadArgument || std::exchange(entry.wasTried, true))
      remove(number)->fail(error);
    if (error.kind() != ClientError::Kind::BadArgument)
      loseConnection(error);
    return true;
  }
  waiting_.pop_front();
  entry.isSent = true;
  ++sent_;
  sentBytes_ += entry.bytes;
  return true;
}

bool RequestEngine::hasConnection() {
  if (connection_)
    return true;
  try {
    std::unique_ptr<AgentConnection> fresh = connector_();
    std::lock_guard lock(mutex_);
    connection_ = std::move(fresh);
    return true;
  } catch (const ClientError &error) {
    refuseWaiting(error);
    return false;
  }
}

void RequestEngine::refuseWaiting(const ClientError &error) {
  for (Number number : std::exchange(waiting_, {}))
    if (auto request = remove(number))
      request->fail(error);
}

// What was not sent can go over the next one.
void RequestEngine::loseConnection(const ClientError &error) {
  dropConnection();
  endSent(ClientError(ClientError::Kind::Interrupted, error.name(), error.what()));
}

void RequestEngine::dropConnection() {
  std::unique_ptr<AgentConnection> lost;
  std::lock_guard lock(mutex_);
  lost.swap(connection_);
}

void RequestEngine::endSent(const ClientError &error) {
  std::vector<Number> sent;
  for (const auto &[number, entry] : entries_)
    if (entry.isSent)
      sent.push_back(number);
  for (Number number : sent)
    if (auto request = remove(number))
      request->fail(error);
}

// The request of the entry, null when nobody waits for it or there is none.
std::shared_ptr<PendingRequest> RequestEngine::remove(Number number) {
  auto found = entries_.find(number);
  if (found == entries_.end())
    return nullptr;
  if (found->second.isSent) {
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
    giveUp(number, ClientError::Kind::DeadlinePassed, "the time allowed has passed");
  }
}

std::optional<RequestEngine::Clock::time_point> RequestEngine::nextDeadline() const {
  if (deadlines_.empty())
    return std::nullopt;
  return deadlines_.begin()->first;
}

void RequestEngine::waitForWork() {
  std::optional<Clock::time_point> until = nextDeadline();
  std::unique_lock lock(mutex_);
  if (!started_.empty() || !cancelled_.empty() || stopping_)
    until = Clock::time_point::min(); // a look at what has arrived is due all the same
  else
    mayWait_ = true;
  if (connection_) {
    lock.unlock();
    try {
      connection_->wait(*this, until);
    } catch (const ClientError &error) {
      loseConnection(error);
    }
    lock.lock();
  } else if (!until) {
    changed_.wait(lock, [this] { return !mayWait_; });
  } else if (mayWait_) {
    changed_.wait_until(lock, *until, [this] { return !mayWait_; });
  }
  mayWait_ = false;
}

void RequestEngine::endAll() {
  constexpr auto kind = ClientError::Kind::Cancelled;
  constexpr const char *reason = "the client went away";
  endSent(ClientError(kind, "", reason, ClientError::Effect::Unknown));
  refuseWaiting(ClientError(kind, "", reason));
  dropConnection();
}

void RequestEngine::received(Number number, NS::XPCValues values) {
  if (auto request = remove(number))
    request->succeed(std::move(values));
}

void RequestEngine::failed(Number number, const ClientError &error) {
  if (auto request = remove(number))
    request->fail(error);
}

// The agent does one request at a time in the order in which they came, those
// that nobody waits for any more included.
void RequestEngine::progressed(const std::string &chunk) {
  for (const auto &[number, entry] : entries_) {
    if (!entry.isSent || !entry.hasProgress)
      continue;
    if (std::shared_ptr<PendingRequest> request = entry.request)
      request->progress(chunk);
    return;
  }
}

} // namespace kw
