// A session of the command on a terminal that keeps all that appears there.
#pragma once

#include "CommandLine/Session.h"

#include <optional>
#include <sstream>
#include <string>

namespace kwtest {

struct Terminal {
  Terminal() {
    surroundings.out = &screen;
    surroundings.err = &screen;
    surroundings.outIsTerminal = true;
    surroundings.errIsTerminal = true;
    surroundings.canErase = true;
    surroundings.ask = [this](const std::string &question) {
      screen << question;
      return "y";
    };
    session.emplace(surroundings, options);
  }

  std::ostringstream screen;
  kw::Surroundings surroundings;
  kw::GlobalOptions options;
  std::optional<kw::Session> session;
};

} // namespace kwtest
