// The thread of the bus: takes posted work, handles arrived messages, waits.
#include "Service/Linux/BusThread.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"

#include <utility>

namespace NS {
namespace {

// The pause before the next attempt when receiving fails although the bus is
// still there, for example by a lack of memory.
constexpr std::chrono::milliseconds pauseAfterFailure{10};

// Without memory for this text it prints none.
void tell(const char *words, const std::exception &exception) noexcept {
  try {
    Log(words, exception.what());
  } catch (const std::exception &) {
  }
}

std::string notReachable(const std::string &bus, const BusError &error) {
  return "The bus \"" + bus + "\" cannot be reached: " + error.what();
}

} // namespace

BusThread::BusThread(const std::string &bus) try
    : connection_(bus), mailbox_(std::make_shared<BusMailbox>()) {
} catch (const BusError &error) {
  throw Exception(InternalInconsistencyException, notReachable(bus, error));
}

BusThread::~BusThread() {
  stop();
}

void BusThread::stop() {
  mailbox_->post([this] { stopHandling(); });
  if (thread_.joinable())
    thread_.join();
  mailbox_->close();
}

void BusThread::start(Receiver receiver, std::function<void(const std::string &)> lost) {
  receiver_ = std::move(receiver);
  thread_ = std::thread([this, lost = std::move(lost)] {
    try {
      loop();
    } catch (const BusDisconnected &error) {
      mailbox_->close();
      lost(error.what());
    }
  });
}

void BusThread::loop() {
  while (true) {
    for (const BusMailbox::Work &work : mailbox_->take())
      guarded(work);
    if (stopping_)
      return;
    if (doWhatIsDue() || receiveOne())
      continue;
    guarded([this] { connection_.wait(mailbox_->waker(), nextDue()); });
  }
}

// Only a lost bus ends the thread.
void BusThread::guarded(const std::function<void()> &work) {
  try {
    work();
  } catch (const BusDisconnected &) {
    throw;
  } catch (const std::exception &exception) {
    tell("The thread of the bus goes on: %@", exception);
  }
}

void BusThread::callAfter(std::chrono::milliseconds delay, BusMailbox::Work work) {
  later_.emplace(Clock::now() + delay, std::move(work));
}

void BusThread::doChoresAfter(std::chrono::milliseconds delay) noexcept {
  if (!choresDue_)
    choresDue_ = Clock::now() + delay;
}

std::optional<BusThread::Clock::time_point> BusThread::nextDue() const {
  if (later_.empty() || (choresDue_ && *choresDue_ < later_.begin()->first))
    return choresDue_;
  return later_.begin()->first;
}

bool BusThread::doWhatIsDue() {
  if (choresDue_ && *choresDue_ <= Clock::now()) {
    choresDue_.reset();
    for (const BusMailbox::Work &chore : chores_)
      guarded(chore);
    return true;
  }
  if (later_.empty() || later_.begin()->first > Clock::now())
    return false;
  guarded(later_.extract(later_.begin()).mapped());
  return true;
}

bool BusThread::receiveOne() {
  BusMessage message;
  try {
    message = connection_.next();
  } catch (const BusDisconnected &) {
    throw;
  } catch (const std::exception &exception) {
    tell("What the bus sent could not be received: %@", exception);
    std::this_thread::sleep_for(pauseAfterFailure);
    return true;
  }
  if (!message)
    return false;
  guarded([&] { handle(message); });
  return true;
}

void BusThread::handle(BusMessage &message) {
  BusMessage::Kind kind = message.kind();
  if (kind == BusMessage::Kind::Call || kind == BusMessage::Kind::Signal)
    return receiver_(message);
  // The agent asks only the bus itself.
  if (message.sender() != BusConnection::busName)
    return;
  if (auto asked = asked_.extract(message.replySerial()))
    asked.mapped()(message);
}

void BusThread::ask(BusMessage call, Receiver answer) {
  std::map<std::uint32_t, Receiver> made;
  made.emplace(0, std::move(answer));
  auto node = made.extract(made.begin());
  node.key() = connection_.send(call);
  asked_.insert(std::move(node)); // needs no memory, so the answer always finds its handler
}

} // namespace NS
