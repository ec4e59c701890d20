// One message of the bus: its header, and the values in it one by one.
//
// A handle that can be moved but not copied, for the thread of its connection.
// A value that cannot be written or read raises BusError, a lack of memory
// std::bad_alloc. A message whose writing failed must not be sent.
#pragma once

#include "Protocol/Linux/BusError.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct sd_bus_message;

namespace NS {

// The most bytes of a message's values in their encoded form: text of 16 MiB
// and a little more. Far below the limit of the strictest usual bus, since the
// sender of a larger message loses its connection.
inline constexpr std::size_t maximumBodyBytes = (std::size_t{16} << 20) + 1024;

class BusMessage {
public:
  enum class Kind { Call, Reply, Failure, Signal };

  BusMessage() = default;
  // Takes ownership of the reference.
  explicit BusMessage(sd_bus_message *message) : message_(message) {}
  ~BusMessage();
  BusMessage(BusMessage &&other) noexcept;
  BusMessage &operator=(BusMessage &&other) noexcept;

  // An empty handle permits only this question.
  explicit operator bool() const { return message_ != nullptr; }
  sd_bus_message *get() const { return message_; }

  // The header; a missing field is empty. The texts live as long as the
  // message.
  Kind kind() const;
  std::string_view sender() const;
  std::string_view destination() const;
  std::string_view path() const;
  std::string_view interface() const;
  std::string_view member() const;
  std::string_view signature() const;
  std::string_view errorName() const;
  // Its number, known once it was sent or received. An answer also has that of
  // its call.
  std::uint32_t serial() const;
  std::uint32_t replySerial() const;
  bool expectsReply() const;
  // The bytes that it takes on its way, header included, rounded up by some
  // bytes. During writing, the bytes so far. Only for messages written here.
  std::size_t size() const;

  // Make answers to a received call. They need none of the call's memory later.
  BusMessage makeReply() const;
  BusMessage makeFailure(const std::string &name, const std::string &text) const;

  // Writes values in order. Raises BusMessageTooLarge when the body becomes too
  // large.
  void write(bool value);
  void write(std::int32_t value);
  void write(std::uint32_t value);
  void write(std::int64_t value);
  void write(std::uint64_t value);
  void write(double value);
  // Replaces invalid text as busText() does.
  void write(std::string_view text);
  void write(const std::string &text) { write(std::string_view(text)); }
  void write(const char *text) { write(std::string_view(text)); }
  void write(const std::vector<std::string> &texts);
  // Containers: 'a' array, 'v' variant, 'r' struct, 'e' entry of a dictionary,
  // with the signature of their contents.
  void open(char container, const char *contents);
  void close();

  // Reads values in order. Raises BusError when the next value is of another
  // kind.
  bool readBool();
  std::int32_t readInt32();
  std::uint32_t readUInt32();
  std::int64_t readInt64();
  std::uint64_t readUInt64();
  double readDouble();
  std::string_view readText(); // lives as long as the message
  std::vector<std::string> readTexts();
  // False at the end of the container that was entered last.
  bool enter(char container, const char *contents);
  void leave();
  bool isAtEnd();
  // The type of the next value and, for a container, the signature of its
  // contents; empty at the end.
  struct Type {
    char kind = '\0';
    std::string contents;
  };
  Type peek();
  void skip(const char *signature);

private:
  template <typename Value> void writeNumber(char type, const Value &value, std::size_t size);
  template <typename Value> Value readNumber(char type);
  void count(std::size_t alignment, std::size_t bytes);

  sd_bus_message *message_ = nullptr;
  std::size_t bodyBytes_ = 0; // written so far
};

} // namespace NS
