// The telling of a flag and its error.
#include "CommandLine/Outcome.h"

#include <fmt/format.h>

namespace kw {
namespace {

std::string pathOf(const NS::Error &error) {
  auto found = error.userInfo().find(NS::FilePathErrorKey);
  const auto *path =
      found == error.userInfo().end() ? nullptr : std::get_if<std::string>(&found->second);
  return path ? *path : "";
}

// The platform's sentence for an error without words says a number only.
std::string wordsOf(const NS::Error &error) {
  bool hasWords = error.userInfo().contains(NS::LocalizedDescriptionKey);
  if (!hasWords && error.domain() == NS::POSIXErrorDomain)
    return NS::errorFromErrno(static_cast<int>(error.code())).localizedDescription();
  return error.localizedDescription();
}

} // namespace

std::string causeOf(const NS::Error &error, const std::string &path) {
  std::string place;
  const NS::Error *cause = &error;
  for (;; cause = cause->underlyingError()) {
    if (std::string deeper = pathOf(*cause); !deeper.empty())
      place = deeper;
    if (!cause->underlyingError())
      break;
  }
  std::string words = wordsOf(*cause);
  return place.empty() || place == path ? words : fmt::format("{}: {}", place, words);
}

int tellFailure(Session &session, JSONObject request, const std::string &path,
                const NS::Error &error) {
  session.sayFailure(request.add("success", false).add("error", jsonOfError(error)));
  session.complain(path + ": " + causeOf(error, path));
  return ExitRefused;
}

int tellStoppedEarly(Session &session, JSONObject request) {
  constexpr const char *reason = "stopped";
  session.sayFailure(request.add("success", false).add("error", jsonOfReason(reason, "cancelled")));
  session.complain(reason);
  return ExitStopped;
}

int tellDryRun(Session &session, JSONObject request, const Wording &wording) {
  request.add("dryRun", true);
  if (wording.obstacle && wording.obstacle())
    return tellOutcome(session, request, false, wording);
  session.sayJSON(request.add("success", true));
  session.say(wording.done);
  return ExitDone;
}

int tellOutcome(Session &session, JSONObject request, const Told &reply, const Wording &wording) {
  if (reply.isDone) {
    session.sayJSON(request.add("success", true));
    session.say(wording.done);
    return ExitDone;
  }
  request.add("success", false);
  std::string reason;
  if (reply.error)
    reason = causeOf(*reply.error, wording.path);
  else if (wording.obstacle)
    reason = wording.obstacle().value_or("");
  if (reply.error)
    request.add("error", jsonOfError(*reply.error));
  else
    request.add("error", reason.empty() ? jsonOfReason() : jsonOfReason(reason));
  session.sayFailure(request);
  session.complain(reason.empty() ? wording.failed : fmt::format("{}: {}", wording.failed, reason));
  return ExitRefused;
}

} // namespace kw
