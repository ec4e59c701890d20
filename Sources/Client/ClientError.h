// Why a request to the agent got no reply.
#pragma once

#include <stdexcept>
#include <string>

namespace kw {

class ClientError : public std::runtime_error {
public:
  enum class Kind {
    Unreachable, // no bus, no agent, no right to call it, or it went away
    Refused,     // the agent or the bus answered with an error of the bus
    BadArgument, // the text cannot be sent: it is no UTF-8 or holds a NUL
  };

  ClientError(Kind kind, std::string name, const std::string &message)
      : std::runtime_error(message), kind_(kind), name_(std::move(name)) {}

  Kind kind() const { return kind_; }
  // The bus's name of the error, such as
  // "org.freedesktop.DBus.Error.NotSupported".
  const std::string &name() const { return name_; }

private:
  Kind kind_;
  std::string name_;
};

} // namespace kw
