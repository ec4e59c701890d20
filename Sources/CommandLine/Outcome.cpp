// The telling of a flag and its error.
#include "CommandLine/Outcome.h"

namespace kw {

int tellOutcome(Session &session, JSONObject request, const Told &reply, const Wording &wording) {
  request.add("success", reply.isDone);
  if (reply.error)
    request.add("error", jsonOfError(*reply.error));
  session.sayJSON(request);
  if (reply.isDone) {
    session.say(wording.done);
    return ExitDone;
  }
  std::string reason = reply.error ? ": " + displayable(reply.error->localizedDescription()) : "";
  session.complain(wording.failed + reason);
  return ExitRefused;
}

} // namespace kw
