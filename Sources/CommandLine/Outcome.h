// Reports the outcome of one request to people and to programs.
#pragma once

#include "CommandLine/Session.h"

#include <string>

namespace kw {

// The words for the outcome of a request.
struct Wording {
  std::string done;   // the whole sentence
  std::string failed; // a whole predicate
  std::string path{}; // that was asked for, if any
  // Why it failed, for agents that do not say; asked only then.
  std::function<std::optional<std::string>()> obstacle = nullptr;
};

// The answer of any reply to whether the work was done.
struct Told {
  bool isDone = false;
  std::optional<NS::Error> error = std::nullopt;

  Told(bool done, std::optional<NS::Error> why = std::nullopt)
      : isDone(done), error(std::move(why)) {}
  Told(const FlagReply &reply) : Told(reply.isDone(), reply.error) {}
  Told(const RemovalReply &reply) : Told(reply.isDone(), reply.error) {}
  // The reply has no other sign of success.
  Told(const AttemptReply &reply) : Told(reply.attempt == Attempt::Made) {}
  Told(const JobRemovalReply &reply) : Told(reply.removal != JobRemoval::NotRemoved) {}
};

// Adds the outcome to the request's JSON members, reports it, and returns the
// exit status.
int tellOutcome(Session &session, JSONObject request, const Told &reply, const Wording &wording);

// Reports the effect that a request would have, by the wording's first sentence,
// and returns the exit status: a refusal if there is an obstacle already.
int tellDryRun(Session &session, JSONObject request, const Wording &wording);

// Reports that the command was stopped before it had an answer, and returns the
// exit status.
int tellStoppedEarly(Session &session, JSONObject request);

// Reports why an item could not be read, and returns the exit status.
int tellFailure(Session &session, JSONObject request, const std::string &path,
                const NS::Error &error);

// The words of the deepest cause, with the path it happened at where that is
// another than the one that was asked for.
std::string causeOf(const NS::Error &error, const std::string &path = "");

} // namespace kw
