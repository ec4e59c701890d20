// The thread of the bus: takes what was posted, handles what arrived, waits.
#include "Foundation/Linux/BusThread.h"

#include "Foundation/Exception.h"
#include "Foundation/Log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <new>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

std::unique_ptr<sdbus::IConnection> openBus(std::string_view bus) {
  try {
    if (bus == "system")
      return sdbus::createSystemBusConnection();
    if (bus == "session")
      return sdbus::createSessionBusConnection();
    return sdbus::createSessionBusConnectionWithAddress(std::string(bus));
  } catch (const sdbus::Error &error) {
    throw Exception(InternalInconsistencyException,
                    "The bus \"" + std::string(bus) +
                        "\" cannot be reached: " + error.getMessage());
  }
}

// The wrapper of the bus library has no filters, and its handlers cannot stop
// what is done with a message next. This is the way to the library itself.
struct LibraryMessage : sdbus::Message {
  static sd_bus_message *of(const sdbus::Message &message) {
    return static_cast<sd_bus_message *>(message.*(&LibraryMessage::msg_));
  }
};

std::string textOrEmpty(const char *text) {
  return text ? text : "";
}

int filterCall(sd_bus_message *message, void *userData, sd_bus_error *) {
  std::uint8_t type = 0;
  if (sd_bus_message_get_type(message, &type) < 0 || type != SD_BUS_MESSAGE_METHOD_CALL)
    return 0;
  const auto &filter = *static_cast<BusThread::CallFilter *>(userData);
  try {
    const bool isLetIn = filter(textOrEmpty(sd_bus_message_get_sender(message)),
                                textOrEmpty(sd_bus_message_get_interface(message)));
    return isLetIn ? 0 : 1;          // 1: it has been dealt with
  } catch (const std::bad_alloc &) { // nothing may pass the library's frames
    return 0;                        // dropping it would leave its caller without an answer
  } catch (const std::exception &exception) {
    Log("A call was dropped: %@", exception.what());
    return 1;
  }
}

} // namespace

BusMailbox::BusMailbox() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ < 0)
    throw Exception(InternalInconsistencyException, "No descriptor is left for the bus.");
}

BusMailbox::~BusMailbox() {
  ::close(descriptor_);
}

void BusMailbox::post(Work work) {
  Works works;
  works.push_back(std::move(work));
  post(std::move(works));
}

void BusMailbox::post(Works works) noexcept {
  std::lock_guard lock(mutex_);
  if (!closed_)
    postLocked(works);
}

void BusMailbox::postLocked(Works &works) noexcept {
  work_.splice(work_.end(), works);
  const std::uint64_t one = 1;
  // It fails only when the counter is full, and then the reader is awake.
  static_cast<void>(!::write(descriptor_, &one, sizeof one));
}

void BusMailbox::doOrPost(Work work) {
  Works works;
  works.push_back(std::move(work));
  {
    std::lock_guard lock(mutex_);
    if (closed_)
      return;
    if (taker_ != std::this_thread::get_id() || !work_.empty()) {
      postLocked(works);
      return;
    }
  }
  works.front()();
}

BusMailbox::Works BusMailbox::take() {
  std::lock_guard lock(mutex_);
  taker_ = std::this_thread::get_id();
  if (work_.empty())
    return {};
  std::uint64_t count = 0;
  static_cast<void>(!::read(descriptor_, &count, sizeof count));
  return std::exchange(work_, {});
}

void BusMailbox::close() {
  Works dropped;
  std::lock_guard lock(mutex_);
  closed_ = true;
  dropped.swap(work_);
}

BusThread::BusThread(std::string_view bus)
    : connection_(openBus(bus)), mailbox_(std::make_shared<BusMailbox>()) {}

BusThread::~BusThread() {
  stop();
}

void BusThread::filterCalls(CallFilter filter) {
  filter_ = std::move(filter);
  const auto proxy = sdbus::createProxy(*connection_, "org.freedesktop.DBus", "/");
  const sdbus::MethodCall call = proxy->createMethodCall("org.freedesktop.DBus.Peer", "Ping");
  sd_bus *bus = sd_bus_message_get_bus(LibraryMessage::of(call));
  if (sd_bus_add_filter(bus, nullptr, filterCall, &filter_) < 0)
    throw Exception(InternalInconsistencyException, "The calls of the bus cannot be filtered.");
}

void BusThread::stop() {
  mailbox_->post([this] { stopHandling(); });
  if (thread_.joinable())
    thread_.join();
  mailbox_->close();
}

void BusThread::start(std::function<void(const std::string &)> lost) {
  thread_ = std::thread([this, lost = std::move(lost)] {
    try {
      loop();
    } catch (const std::exception &error) {
      mailbox_->close();
      lost(error.what());
    }
  });
}

void BusThread::loop() {
  while (true) {
    for (const BusMailbox::Work &work : mailbox_->take())
      work();
    if (stopping_)
      return;
    if (!doWhatIsDue() && !connection_->processPendingRequest())
      waitForEvents();
  }
}

void BusThread::callAfter(std::chrono::milliseconds delay, BusMailbox::Work work) {
  later_.emplace(Clock::now() + delay, std::move(work));
}

bool BusThread::doWhatIsDue() {
  if (later_.empty() || later_.begin()->first > Clock::now())
    return false;
  later_.extract(later_.begin()).mapped()();
  return true;
}

// In milliseconds, -1 for ever; never so short that it ends before its time.
int BusThread::timeout(int ofTheBus) const {
  if (later_.empty())
    return ofTheBus;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(later_.begin()->first - Clock::now());
  const int own = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
  return ofTheBus < 0 ? own : std::min(ofTheBus, own);
}

void BusThread::waitForEvents() {
  const auto data = connection_->getEventLoopPollData();
  std::array<pollfd, 2> waiting{pollfd{data.fd, data.events, 0},
                                pollfd{mailbox_->descriptor(), POLLIN, 0}};
  if (::poll(waiting.data(), waiting.size(), timeout(data.getPollTimeout())) < 0 && errno != EINTR)
    throw Exception(InternalInconsistencyException, "Waiting for the bus failed.");
}

} // namespace NS
