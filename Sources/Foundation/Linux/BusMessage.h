// One message of the bus: its header, and the values in it one by one.
//
// A handle that is moved, never copied; for the thread of its connection. What
// cannot be written or read raises BusError, a want of memory std::bad_alloc;
// a message that was being written is of no use then.
#pragma once

#include "Foundation/Linux/BusError.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct sd_bus_message;

namespace NS {

// What the values of a message may take in all, as they stand in it: text of
// 16 MiB and something beside it. Far below what the strictest usual bus lets
// through, since a sender of a larger message loses its connection.
inline constexpr std::size_t maximumBodyBytes = (std::size_t{16} << 20) + 1024;

class BusMessage {
public:
  enum class Kind { Call, Reply, Failure, Signal };

  BusMessage() = default;
  // Takes the reference over.
  explicit BusMessage(sd_bus_message *message) : message_(message) {}
  ~BusMessage();
  BusMessage(BusMessage &&other) noexcept;
  BusMessage &operator=(BusMessage &&other) noexcept;

  // Of an empty handle nothing else may be asked.
  explicit operator bool() const { return message_ != nullptr; }
  sd_bus_message *get() const { return message_; }

  // The header; empty where there is no such field. The texts live as long as
  // the message.
  Kind kind() const;
  std::string_view sender() const;
  std::string_view destination() const;
  std::string_view path() const;
  std::string_view interface() const;
  std::string_view member() const;
  std::string_view signature() const;
  std::string_view errorName() const;
  // Its number, known once it was sent or received; of an answer also that of
  // the call.
  std::uint32_t serial() const;
  std::uint32_t replySerial() const;
  bool expectsReply() const;
  // What it takes on its way, header included, rounded up by some bytes; while
  // it is written, what it takes so far. Only of messages written here.
  std::size_t size() const;

  // To a call that was received. Both need no memory of the call's any more.
  BusMessage makeReply() const;
  BusMessage makeFailure(const std::string &name, const std::string &text) const;

  // Writing, in order. BusMessageTooLarge when the body becomes too large.
  void write(bool value);
  void write(std::int32_t value);
  void write(std::uint32_t value);
  void write(std::int64_t value);
  void write(std::uint64_t value);
  void write(double value);
  // What is no text is replaced, as busText() does.
  void write(std::string_view text);
  void write(const std::string &text) { write(std::string_view(text)); }
  void write(const char *text) { write(std::string_view(text)); }
  void write(const std::vector<std::string> &texts);
  // Containers: 'a' array, 'v' variant, 'r' struct, 'e' entry of a dictionary,
  // with the signature of their contents.
  void open(char container, const char *contents);
  void close();

  // Reading, in order; BusError when the next value is of another kind.
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
  // The type of the next value and, of a container, the signature of its
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
