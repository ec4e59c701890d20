// Opening the bus, and messages out and in, through the bus library.
#include "Protocol/Linux/BusConnection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

// Answers of the bus to a request for a name.
constexpr std::uint32_t isOwner = 1;
constexpr std::uint32_t isAlreadyOwner = 4;
constexpr std::uint32_t doNotQueue = 4;

constexpr const char *cannotOpen = "The bus cannot be opened";

int check(int result, const std::string &what) {
  if (result < 0)
    BusError::raise(result, what);
  return result;
}

std::string environmentOr(const char *variable, std::string fallback) {
  const char *value = ::secure_getenv(variable);
  return value && *value ? value : std::move(fallback);
}

std::string addressOf(const std::string &bus) {
  if (bus == "system")
    return environmentOr("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/dbus/system_bus_socket");
  if (bus == "session") {
    std::string folder = environmentOr("XDG_RUNTIME_DIR", "");
    return environmentOr("DBUS_SESSION_BUS_ADDRESS",
                         folder.empty() ? "" : "unix:path=" + folder + "/bus");
  }
  return bus;
}

// The library's filter sees every message first. It takes each, so that the
// library answers none by itself, and none of our code runs within its frames.
int take(sd_bus_message *message, void *arrived, sd_bus_error *) {
  *static_cast<BusMessage *>(arrived) = BusMessage(sd_bus_message_ref(message));
  return 1;
}

// Milliseconds for poll, rounded up so that the wait does not end too early and
// repeat.
int pollTime(std::optional<BusConnection::Clock::time_point> until) {
  if (!until)
    return -1;
  auto now = BusConnection::Clock::now();
  if (*until <= now) // the earliest time of all must not be subtracted from
    return 0;
  auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - now).count();
  return static_cast<int>(std::min<std::int64_t>(left, INT_MAX));
}

} // namespace

BusWaker::BusWaker() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ < 0)
    BusError::raise(errno, "No descriptor is left for the bus");
}

BusWaker::~BusWaker() {
  ::close(descriptor_);
}

void BusWaker::wake() noexcept {
  std::uint64_t one = 1;
  // It fails only when the counter is full, and then the reader is awake.
  static_cast<void>(!::write(descriptor_, &one, sizeof one));
}

void BusWaker::clear() noexcept {
  std::uint64_t count = 0;
  static_cast<void>(!::read(descriptor_, &count, sizeof count));
}

BusConnection::BusConnection(const std::string &bus, Opening opening) {
  check(sd_bus_new(&bus_), cannotOpen);
  try {
    start(addressOf(bus));
    if (opening == Opening::Await)
      static_cast<void>(waitUntilAccepted(std::nullopt));
  } catch (...) {
    sd_bus_close_unref(bus_);
    throw;
  }
}

void BusConnection::start(const std::string &address) {
  check(sd_bus_set_address(bus_, address.c_str()), cannotOpen);
  check(sd_bus_set_bus_client(bus_, 1), cannotOpen);
  check(sd_bus_negotiate_fds(bus_, 0), cannotOpen);
  check(sd_bus_add_filter(bus_, nullptr, take, &arrived_), cannotOpen);
  check(sd_bus_start(bus_), cannotOpen);
}

bool BusConnection::isAccepted() const {
  return sd_bus_is_ready(bus_) > 0;
}

bool BusConnection::waitUntilAccepted(std::optional<Clock::time_point> until) {
  BusWaker nobody;
  try {
    while (true) {
      next(); // answers no request: none was sent
      if (isAccepted())
        return true;
      if (until && Clock::now() >= *until)
        return false;
      wait(nobody, until);
    }
  } catch (const BusError &error) {
    throw BusError(error.name(), std::string(cannotOpen) + ": " + error.what());
  }
}

BusConnection::~BusConnection() {
  arrived_ = BusMessage();
  sd_bus_close_unref(bus_);
}

BusMessage BusConnection::makeCall(const std::string &destination, const std::string &path,
                                   const std::string &interface, const std::string &member) {
  sd_bus_message *call = nullptr;
  check(sd_bus_message_new_method_call(bus_, &call, destination.c_str(), path.c_str(),
                                       interface.c_str(), member.c_str()),
        "A call cannot be made");
  return BusMessage(call);
}

BusMessage BusConnection::makeSignal(const std::string &destination, const std::string &path,
                                     const std::string &interface, const std::string &member) {
  sd_bus_message *made = nullptr;
  check(sd_bus_message_new_signal(bus_, &made, path.c_str(), interface.c_str(), member.c_str()),
        "A signal cannot be made");
  BusMessage signal(made);
  check(sd_bus_message_set_destination(made, destination.c_str()), "A signal cannot be made");
  return signal;
}

std::uint32_t BusConnection::send(BusMessage &message) {
  std::uint64_t serial = 0;
  check(sd_bus_send(bus_, message.get(), &serial), "A message cannot be sent");
  return static_cast<std::uint32_t>(serial);
}

BusMessage BusConnection::callAndWait(BusMessage &call) {
  sd_bus_error error{};
  sd_bus_message *reply = nullptr;
  int result = sd_bus_call(bus_, call.get(), 0, &error, &reply);
  BusMessage held(reply);
  if (result >= 0)
    return held;
  if (!sd_bus_error_is_set(&error))
    BusError::raise(result, "The bus does not answer");
  BusError failure(error.name, error.message ? error.message : "");
  sd_bus_error_free(&error);
  throw failure;
}

BusMessage BusConnection::next() {
  while (true) {
    int result = sd_bus_process(bus_, nullptr);
    BusMessage message = std::exchange(arrived_, BusMessage());
    // The library makes up a last message when the connection is lost.
    if (sd_bus_is_open(bus_) <= 0)
      throw BusDisconnected();
    if (message)
      return message;
    check(result, "What the bus sent cannot be received");
    if (result == 0)
      return message;
  }
}

void BusConnection::wait(BusWaker &waker, std::optional<Clock::time_point> until) {
  std::uint64_t due = UINT64_MAX; // in microseconds of the same clock
  int events = sd_bus_get_events(bus_);
  if (events < 0 || sd_bus_get_timeout(bus_, &due) < 0)
    return; // the connection is lost, and next() reports that
  if (due != UINT64_MAX) {
    Clock::time_point libraryDue{std::chrono::microseconds(due)};
    until = until ? std::min(*until, libraryDue) : libraryDue;
  }
  std::array<pollfd, 2> waiting{pollfd{sd_bus_get_fd(bus_), static_cast<short>(events), 0},
                                pollfd{waker.descriptor(), POLLIN, 0}};
  if (::poll(waiting.data(), waiting.size(), pollTime(until)) < 0 && errno != EINTR)
    BusError::raise(errno, "Waiting for the bus failed");
  if (waiting[1].revents != 0)
    waker.clear();
}

BusMessage BusConnection::askBus(const char *member, const std::string &name,
                                 std::optional<std::uint32_t> flags) {
  BusMessage call = makeCall(busName, busPath, busInterface, member);
  call.write(name);
  if (flags)
    call.write(*flags);
  return callAndWait(call);
}

void BusConnection::addMatch(const std::string &rule) {
  askBus("AddMatch", rule);
}

bool BusConnection::requestName(const std::string &name) {
  std::uint32_t answer = askBus("RequestName", name, doNotQueue).readUInt32();
  return answer == isOwner || answer == isAlreadyOwner;
}

void BusConnection::releaseName(const std::string &name) {
  askBus("ReleaseName", name);
}

std::optional<std::string> BusConnection::ownerOfName(const std::string &name) {
  try {
    return std::string(askBus("GetNameOwner", name).readText());
  } catch (const BusError &error) {
    if (error.name() != "org.freedesktop.DBus.Error.NameHasNoOwner")
      throw;
    return std::nullopt;
  }
}

std::string BusConnection::uniqueName() const {
  const char *name = nullptr;
  check(sd_bus_get_unique_name(bus_, &name), "The connection has no name");
  return name;
}

} // namespace NS
