// Commands about the agent itself.
#include "CommandLine/Command.h"

#include <memory>

namespace kw {
namespace {

CommandRun declareEcho(Arguments &arguments) {
  auto text = std::make_shared<std::string>();
  arguments.operand("text", *text, "TEXT", "The text to repeat", nullptr);
  return [text](Session &session) {
    JSONObject request;
    request.add("command", "echo");
    return reportingFailures(session, request, [&] {
      EchoReply reply = session.await(session.agent().echoAsync(*text, session.requestOptions()));
      bool same = reply.text == *text;
      session.say(reply.text);
      JSONObject object = JSONObject(request).add("success", same).add("text", reply.text);
      if (same)
        session.sayJSON(object);
      else
        session.sayFailure(object.add("error", jsonOfReason()));
      return same ? ExitDone : ExitRefused;
    });
  };
}

CommandRun declareTerminate(Arguments & /*arguments*/) {
  return [](Session &session) {
    JSONObject request;
    request.add("command", "terminate");
    return reportingFailures(session, request, [&] {
      session.await(session.agent().pleaseTerminateAsync(session.requestOptions()));
      session.say("The agent has ended.");
      session.sayJSON(JSONObject(request).add("success", true));
      return ExitDone;
    });
  };
}

} // namespace

CommandTable agentCommands() {
  return {
      {"echo",
       "Have the agent repeat a text, to test whether it answers",
       declareEcho,
       {{"echo hello", "prints hello if the agent answers"}}},
      {"terminate",
       "End the agent; the next request starts it again",
       declareTerminate,
       {{"terminate", "also ends its work for other clients"}}},
  };
}

} // namespace kw
