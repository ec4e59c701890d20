// Failures on the message bus, with the bus's own names of errors.
#pragma once

#include <stdexcept>
#include <string>

namespace NS {

class BusError : public std::runtime_error {
public:
  BusError(std::string name, const std::string &text)
      : std::runtime_error(text), name_(std::move(name)) {}

  // Raises the error of a number that a function of the bus library returned,
  // negative or not; for a lack of memory raises std::bad_alloc.
  [[noreturn]] static void raise(int number, const std::string &what);

  // "org.freedesktop.DBus.Error.Failed" and the like.
  const std::string &name() const { return name_; }

private:
  std::string name_;
};

// The connection is lost: only its destruction is allowed then.
class BusDisconnected final : public BusError {
public:
  BusDisconnected()
      : BusError("org.freedesktop.DBus.Error.Disconnected", "the connection has ended") {}
};

// A message would exceed the largest size.
class BusMessageTooLarge final : public BusError {
public:
  BusMessageTooLarge()
      : BusError("org.freedesktop.DBus.Error.LimitsExceeded",
                 "the values are too large for a message") {}
};

} // namespace NS
