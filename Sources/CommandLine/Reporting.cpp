// Reports a request that got no reply: in words, as JSON, and by an exit status.
#include "CommandLine/Command.h"

#include "Foundation/Processes/ProcessInfo.h"

#include <algorithm>
#include <fmt/format.h>

namespace kw {
namespace {

constexpr const char *accessDenied = "org.freedesktop.DBus.Error.AccessDenied";

int exitStatusOf(ClientError::Kind kind) {
  switch (kind) {
  case ClientError::Kind::Unreachable:
  case ClientError::Kind::Interrupted:
  case ClientError::Kind::DeadlinePassed:
    return ExitNoAnswer;
  case ClientError::Kind::Cancelled:
    return ExitStopped;
  case ClientError::Kind::BadArgument:
    return ExitUsage;
  case ClientError::Kind::Refused:
  case ClientError::Kind::BadReply:
    break;
  }
  return ExitRefused;
}

std::string wordsOf(const ClientError &error) {
  if (error.name() == accessDenied)
    return fmt::format("You are not in the group keepwell. Ask an administrator for `adduser {} "
                       "keepwell`, then log in again.",
                       NS::realUserName());
  std::string text = error.what();
  switch (error.kind()) {
  case ClientError::Kind::Unreachable:
    return "the agent cannot be reached: " + text;
  case ClientError::Kind::Interrupted:
    return "the agent ended before it answered, and it is not known how far it came: " + text;
  case ClientError::Kind::DeadlinePassed:
    return error.effect() == ClientError::Effect::None
               ? "nothing was done: " + text
               : "no answer in the time allowed; the agent may yet do it";
  case ClientError::Kind::Refused:
    return "the agent refused: " + text;
  case ClientError::Kind::Cancelled:
    return error.effect() == ClientError::Effect::None ? "stopped before it began"
                                                       : "stopped; work done by then stays done";
  case ClientError::Kind::BadReply:
  case ClientError::Kind::BadArgument:
    break;
  }
  return text;
}

} // namespace

int worse(int left, int right) {
  return std::max(left, right);
}

int reportingFailures(Session &session, const JSONObject &request,
                      const std::function<int()> &attempt, const std::string &subject) {
  try {
    return attempt();
  } catch (const ClientError &error) {
    if (error.kind() == ClientError::Kind::Cancelled && error.effect() != ClientError::Effect::None)
      session.noteStoppedInPart();
    JSONObject object = request;
    session.sayFailure(object.add("success", false).add("error", jsonOfError(error)));
    session.complain(subject.empty() ? wordsOf(error)
                                     : fmt::format("{}: {}", subject, wordsOf(error)));
    return exitStatusOf(error.kind());
  }
}

} // namespace kw
