// What a request without a reply is to people, programs and the exit status.
#include "CommandLine/Command.h"

#include <algorithm>

namespace kw {
namespace {

int complainOf(Session &session, const ClientError &error) {
  std::string text = displayable(error.what());
  switch (error.kind()) {
  case ClientError::Kind::Unreachable:
    session.complain("the agent cannot be reached: " + text);
    return ExitNoAnswer;
  case ClientError::Kind::Interrupted:
    session.complain("the agent ended before it answered; what it had done by then is not known: " +
                     text);
    return ExitNoAnswer;
  case ClientError::Kind::DeadlinePassed:
    session.complain("no answer in the time allowed; the agent may yet do it");
    return ExitNoAnswer;
  case ClientError::Kind::Refused:
    session.complain("the agent refused: " + text);
    return ExitRefused;
  case ClientError::Kind::BadReply:
  case ClientError::Kind::Cancelled:
    session.complain(text);
    return ExitRefused;
  case ClientError::Kind::BadArgument:
    session.complain(text);
    return ExitUsage;
  }
  return ExitRefused;
}

} // namespace

int worse(int left, int right) {
  return std::max(left, right);
}

int reportingFailures(Session &session, const JSONObject &request,
                      const std::function<int()> &attempt) {
  try {
    return attempt();
  } catch (const ClientError &error) {
    JSONObject object = request;
    session.sayFailure(object.add("success", false).add("error", jsonOfError(error)));
    return complainOf(session, error);
  }
}

} // namespace kw
