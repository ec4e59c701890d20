// The telling of a flag and its error.
#include "CommandLine/Outcome.h"

namespace kw {

int tellOutcome(Session &session, JSONObject request, const Told &reply, const Wording &wording) {
  request.add("success", reply.isDone);
  if (reply.isDone) {
    session.sayJSON(request);
    session.say(wording.done);
    return ExitDone;
  }
  request.add("error", reply.error ? jsonOfError(*reply.error) : jsonOfReason());
  session.sayFailure(request);
  std::string reason = reply.error ? ": " + displayable(reply.error->localizedDescription()) : "";
  session.complain(wording.failed + reason);
  return ExitRefused;
}

} // namespace kw
