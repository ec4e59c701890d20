// The reason why a request to the agent got no reply.
#pragma once

#include "Client/Export.h"

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace kw {

// A value. Copies share their contents, and different threads may use them.
class KEEPWELL_EXPORT ClientError : public std::exception {
public:
  enum class Kind {
    // The request never reached an agent: no bus, no agent, or no right to
    // call.
    Unreachable,
    // The request was sent, and the agent or the bus ended before the reply.
    // The agent may have done the work, wholly or in part.
    Interrupted,
    // The agent or the bus answered with an error of the bus.
    Refused,
    // The agent's answer does not hold the values of the operation's reply.
    BadReply,
    // The request cannot be sent: the text is invalid UTF-8, holds a NUL or is
    // too long.
    BadArgument,
    // The time that the caller allowed has passed.
    DeadlinePassed,
    // The caller cancelled the request, or the client went away.
    Cancelled,
  };
  // The effect on the agent's side, as far as the client knows.
  enum class Effect {
    None,    // the agent did nothing for this request and will not
    Unknown, // the agent may have done all of it or a part, or may yet do so
  };

  ClientError(Kind kind, std::string name, const std::string &message,
              std::optional<Effect> effect = std::nullopt)
      : kind_(kind), effect_(effect.value_or(usualEffect(kind))),
        texts_(std::make_shared<const Texts>(Texts{std::move(name), message})) {}

  Kind kind() const { return kind_; }
  Effect effect() const { return effect_; }
  // The bus's name of the error, such as
  // "org.freedesktop.DBus.Error.NotSupported"; empty for an error of the
  // client.
  const std::string &name() const { return texts_->name; }
  // Its body is in the library, which so holds the one type information of this
  // class: a program's catch recognises a thrown error by it.
  const char *what() const noexcept override;

private:
  static Effect usualEffect(Kind kind) {
    return kind == Kind::Interrupted || kind == Kind::BadReply ? Effect::Unknown : Effect::None;
  }

  struct Texts {
    std::string name;
    std::string message;
  };

  Kind kind_;
  Effect effect_;
  std::shared_ptr<const Texts> texts_; // never null; shared, so that copying cannot fail
};

} // namespace kw
