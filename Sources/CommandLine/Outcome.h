// How the outcome of one request is told, to people and to programs.
#pragma once

#include "CommandLine/Session.h"

#include <string>

namespace kw {

// The words in which the outcome of a request is told.
struct Wording {
  std::string done;   // the whole sentence
  std::string failed; // to follow "could not be", or a whole predicate
};

// Adds the outcome to the request's JSON members, tells it and gives the exit
// status.
int tellOutcome(Session &session, JSONObject request, const FlagReply &reply,
                const Wording &wording);

} // namespace kw
