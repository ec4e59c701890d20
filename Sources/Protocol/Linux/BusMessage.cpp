// The header and the values of a message, through the bus library.
#include "Protocol/Linux/BusMessage.h"

#include "Protocol/Linux/BusText.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <systemd/sd-bus.h>
#include <utility>

namespace NS {
namespace {

int check(int result, const char *what) {
  if (result < 0)
    BusError::raise(result, what);
  return result;
}

constexpr const char *cannotBeWritten = "A value cannot be written";
constexpr const char *notHere = "A value of another kind was expected";

// A missing value is an error too.
void checkRead(int result) {
  if (check(result, notHere) == 0)
    BusError::raise(ENXIO, notHere);
}

std::string_view view(const char *text) {
  return text ? std::string_view(text) : std::string_view();
}

std::size_t alignedTo(std::size_t alignment, std::size_t offset) {
  return (offset + alignment - 1) / alignment * alignment;
}

// The alignment of a type, by its first character.
std::size_t alignmentOf(char type) {
  switch (type) {
  case 'x':
  case 't':
  case 'd':
  case '(':
  case '{':
    return 8;
  case 'v':
  case 'g':
  case 'y':
    return 1;
  default:
    return 4;
  }
}

// In the header a text also takes its code, its type and its length, and begins
// at its alignment.
std::size_t fieldBytes(std::string_view text) {
  return text.empty() ? 0 : alignedTo(8, 4 + 4 + text.size() + 1);
}

// The fixed part, the number of the call, and the sender that the bus adds.
constexpr std::size_t otherHeaderBytes = 64;

} // namespace

void BusError::raise(int number, const std::string &what) {
  number = std::abs(number);
  if (number == ENOMEM)
    throw std::bad_alloc();
  sd_bus_error error{};
  static_cast<void>(sd_bus_error_set_errno(&error, number));
  BusError result(std::string(view(error.name)),
                  what + " (" + std::string(view(error.message)) + ")");
  sd_bus_error_free(&error);
  throw result;
}

BusMessage::~BusMessage() {
  sd_bus_message_unref(message_);
}

BusMessage::BusMessage(BusMessage &&other) noexcept
    : message_(std::exchange(other.message_, nullptr)), bodyBytes_(other.bodyBytes_) {}

BusMessage &BusMessage::operator=(BusMessage &&other) noexcept {
  std::swap(message_, other.message_);
  std::swap(bodyBytes_, other.bodyBytes_);
  return *this;
}

BusMessage::Kind BusMessage::kind() const {
  std::uint8_t type = 0;
  check(sd_bus_message_get_type(message_, &type), "A message has no type");
  switch (type) {
  case SD_BUS_MESSAGE_METHOD_CALL:
    return Kind::Call;
  case SD_BUS_MESSAGE_METHOD_RETURN:
    return Kind::Reply;
  case SD_BUS_MESSAGE_METHOD_ERROR:
    return Kind::Failure;
  default:
    return Kind::Signal;
  }
}

std::string_view BusMessage::sender() const {
  return view(sd_bus_message_get_sender(message_));
}

std::string_view BusMessage::destination() const {
  return view(sd_bus_message_get_destination(message_));
}

std::string_view BusMessage::path() const {
  return view(sd_bus_message_get_path(message_));
}

std::string_view BusMessage::interface() const {
  return view(sd_bus_message_get_interface(message_));
}

std::string_view BusMessage::member() const {
  return view(sd_bus_message_get_member(message_));
}

std::string_view BusMessage::signature() const {
  return view(sd_bus_message_get_signature(message_, 1));
}

std::string_view BusMessage::errorName() const {
  const sd_bus_error *error = sd_bus_message_get_error(message_);
  return view(error ? error->name : nullptr);
}

std::uint32_t BusMessage::serial() const {
  std::uint64_t serial = 0;
  return sd_bus_message_get_cookie(message_, &serial) < 0 ? 0 : static_cast<std::uint32_t>(serial);
}

std::uint32_t BusMessage::replySerial() const {
  std::uint64_t serial = 0;
  return sd_bus_message_get_reply_cookie(message_, &serial) < 0
             ? 0
             : static_cast<std::uint32_t>(serial);
}

bool BusMessage::expectsReply() const {
  return sd_bus_message_get_expect_reply(message_) > 0;
}

std::size_t BusMessage::size() const {
  std::size_t bytes = otherHeaderBytes + fieldBytes(signature()) + fieldBytes(errorName());
  for (std::string_view text : {destination(), path(), interface(), member()})
    bytes += fieldBytes(text);
  return bytes + bodyBytes_;
}

BusMessage BusMessage::makeReply() const {
  sd_bus_message *reply = nullptr;
  check(sd_bus_message_new_method_return(message_, &reply), "A reply cannot be made");
  return BusMessage(reply);
}

BusMessage BusMessage::makeFailure(const std::string &name, const std::string &text) const {
  sd_bus_message *made = nullptr;
  sd_bus_error error{name.c_str(), nullptr, 0};
  check(sd_bus_message_new_method_error(message_, &made, &error), "An error cannot be made");
  BusMessage failure(made);
  failure.write(text);
  return failure;
}

void BusMessage::count(std::size_t alignment, std::size_t bytes) {
  bodyBytes_ = alignedTo(alignment, bodyBytes_) + bytes;
  if (bodyBytes_ > maximumBodyBytes)
    throw BusMessageTooLarge();
}

template <typename Value>
void BusMessage::writeNumber(char type, const Value &value, std::size_t size) {
  count(size, size);
  check(sd_bus_message_append_basic(message_, type, &value), cannotBeWritten);
}

void BusMessage::write(bool value) {
  writeNumber('b', int{value}, 4);
}

void BusMessage::write(std::int32_t value) {
  writeNumber('i', value, 4);
}

void BusMessage::write(std::uint32_t value) {
  writeNumber('u', value, 4);
}

void BusMessage::write(std::int64_t value) {
  writeNumber('x', value, 8);
}

void BusMessage::write(std::uint64_t value) {
  writeNumber('t', value, 8);
}

void BusMessage::write(double value) {
  writeNumber('d', value, 8);
}

void BusMessage::write(std::string_view text) {
  std::size_t length = busTextLength(text);
  count(4, 4 + length + 1);
  char *space = nullptr;
  check(sd_bus_message_append_string_space(message_, length, &space), cannotBeWritten);
  if (length == text.size())
    text.copy(space, length);
  else
    writeBusText(text, space);
}

void BusMessage::write(const std::vector<std::string> &texts) {
  open('a', "s");
  for (const std::string &text : texts)
    write(text);
  close();
}

void BusMessage::open(char container, const char *contents) {
  if (container == 'v') {
    count(1, std::strlen(contents) + 2);
  } else if (container == 'a') {
    count(4, 4);
    count(alignmentOf(*contents), 0);
  } else {
    count(8, 0);
  }
  check(sd_bus_message_open_container(message_, container, contents), cannotBeWritten);
}

void BusMessage::close() {
  check(sd_bus_message_close_container(message_), cannotBeWritten);
}

template <typename Value> Value BusMessage::readNumber(char type) {
  Value value{};
  checkRead(sd_bus_message_read_basic(message_, type, &value));
  return value;
}

bool BusMessage::readBool() {
  return readNumber<int>('b') != 0;
}

std::int32_t BusMessage::readInt32() {
  return readNumber<std::int32_t>('i');
}

std::uint32_t BusMessage::readUInt32() {
  return readNumber<std::uint32_t>('u');
}

std::int64_t BusMessage::readInt64() {
  return readNumber<std::int64_t>('x');
}

std::uint64_t BusMessage::readUInt64() {
  return readNumber<std::uint64_t>('t');
}

double BusMessage::readDouble() {
  return readNumber<double>('d');
}

std::string_view BusMessage::readText() {
  return view(readNumber<const char *>('s'));
}

std::vector<std::string> BusMessage::readTexts() {
  std::vector<std::string> texts;
  if (!enter('a', "s"))
    BusError::raise(ENXIO, notHere);
  while (!isAtEnd())
    texts.emplace_back(readText());
  leave();
  return texts;
}

bool BusMessage::enter(char container, const char *contents) {
  return check(sd_bus_message_enter_container(message_, container, contents), notHere) > 0;
}

void BusMessage::leave() {
  check(sd_bus_message_exit_container(message_), "Not all of a container was read");
}

bool BusMessage::isAtEnd() {
  return check(sd_bus_message_at_end(message_, 0), notHere) > 0;
}

BusMessage::Type BusMessage::peek() {
  char kind = '\0';
  const char *contents = nullptr;
  if (check(sd_bus_message_peek_type(message_, &kind, &contents), notHere) == 0)
    return {};
  return {kind, std::string(view(contents))};
}

void BusMessage::skip(const char *signature) {
  check(sd_bus_message_skip(message_, signature), notHere);
}

} // namespace NS
