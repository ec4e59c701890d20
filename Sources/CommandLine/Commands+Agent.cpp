// Commands about the agent itself.
#include "CommandLine/Command.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace kw {
namespace {

CommandRun declareEcho(CLI::App &arguments) {
  auto text = std::make_shared<std::string>();
  arguments.add_option("text", *text, "What the agent shall say")->required()->type_name("TEXT");
  return [text](Session &session) {
    JSONObject request;
    request.add("command", "echo");
    return reportingFailures(session, request, [&] {
      EchoReply reply = session.agent().echo(*text);
      bool same = reply.text == *text;
      session.say(displayable(reply.text));
      session.sayJSON(JSONObject(request).add("success", same).add("text", reply.text));
      return same ? ExitDone : ExitRefused;
    });
  };
}

CommandRun declareTerminate(CLI::App & /*arguments*/) {
  return [](Session &session) {
    JSONObject request;
    request.add("command", "terminate");
    return reportingFailures(session, request, [&] {
      session.agent().pleaseTerminate();
      session.say("The agent has ended.");
      session.sayJSON(JSONObject(request).add("success", true));
      return ExitDone;
    });
  };
}

} // namespace

CommandTable agentCommands() {
  return {
      {"echo", "Have the agent repeat a text, to see whether it answers", declareEcho},
      {"terminate", "End the agent; the next request starts it again", declareTerminate},
  };
}

} // namespace kw
