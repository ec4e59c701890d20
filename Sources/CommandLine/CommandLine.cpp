// From the arguments to the one command that they name.
#include "CommandLine/CommandLine.h"

#include "CommandLine/Command.h"
#include "Foundation/Identity.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <ostream>
#include <sstream>

namespace kw {
namespace {

constexpr const char *footer =
    "Relative paths are taken from the current folder.\n"
    "Exit status: 0 done, 1 the agent answered no, 2 usage, 3 the agent cannot be reached.";

CommandTable allCommands() {
  CommandTable all;
  for (const CommandTable &group :
       {fileCommands(), localCommands(), agentCommands(), serviceCommands(), maintenanceCommands()})
    all.insert(all.end(), group.begin(), group.end());
  return all;
}

void declareGlobals(CLI::App &app, GlobalOptions &options) {
  app.add_flag("--json", options.json, "Print one JSON object for each request, errors too");
  app.add_option("--bus", options.bus, "The bus: system, session or an address")
      ->capture_default_str()
      ->type_name("BUS");
  app.set_version_flag("--version", "keepwell " + std::string(kAgentBundleVersion));
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(footer);
}

void sayUsageAsJSON(const char *what, const Surroundings &surroundings) {
  JSONObject complaint;
  complaint.add("kind", "usage").add("description", what);
  *surroundings.out << JSONObject().add("success", false).add("error", complaint).text()
                    << std::endl;
}

// Help and version are no failures to the parser's caller, the rest is.
int reportParsing(const CLI::App &app, const CLI::ParseError &error, bool json,
                  const Surroundings &surroundings) {
  std::ostringstream discarded;
  bool failed = error.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success);
  if (failed && json)
    sayUsageAsJSON(error.what(), surroundings);
  else
    app.exit(error, *surroundings.out, *surroundings.err);
  return failed ? ExitUsage : ExitDone;
}

int reportUsage(const UsageError &error, bool json, const Surroundings &surroundings) {
  if (json)
    sayUsageAsJSON(error.what(), surroundings);
  else
    *surroundings.err << "keepwell: " << error.what() << std::endl;
  return ExitUsage;
}

// The flag may stand anywhere, also behind what could not be understood.
bool asksForJSON(int count, const char *const *arguments) {
  return std::any_of(arguments, arguments + count,
                     [](const char *argument) { return std::string_view(argument) == "--json"; });
}

} // namespace

int runCommandLine(int count, const char *const *arguments, const Surroundings &surroundings) {
  CLI::App app("Asks the privileged agent to do what needs root.", "keepwell");
  GlobalOptions options;
  declareGlobals(app, options);
  CommandRun chosen;
  for (const Command &command : allCommands()) {
    CLI::App *declared = app.add_subcommand(command.name, command.summary);
    CommandRun run = command.declare(*declared);
    declared->callback([&chosen, run = std::move(run)] { chosen = run; });
  }
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError &error) {
    return reportParsing(app, error, asksForJSON(count, arguments), surroundings);
  }
  Session session(surroundings, options);
  int status = ExitDone;
  try {
    status = chosen(session);
  } catch (const UsageError &error) {
    return reportUsage(error, options.json, surroundings);
  }
  // An answer that could not be written was not given.
  surroundings.out->flush();
  if (surroundings.out->good())
    return status;
  *surroundings.err << "keepwell: the answer could not be written" << std::endl;
  return std::max<int>(status, ExitRefused);
}

std::function<CommandRun(CLI::App &)> commandOfVerbs(CommandTable verbs) {
  return [verbs = std::move(verbs)](CLI::App &arguments) -> CommandRun {
    auto chosen = std::make_shared<CommandRun>();
    arguments.require_subcommand(1);
    for (const Command &verb : verbs) {
      CLI::App *declared = arguments.add_subcommand(verb.name, verb.summary);
      CommandRun run = verb.declare(*declared);
      declared->callback([chosen, run = std::move(run)] { *chosen = run; });
    }
    return [chosen](Session &session) { return (*chosen)(session); };
  };
}

int worse(int left, int right) {
  return std::max(left, right);
}

namespace {

int complainOf(Session &session, const ClientError &error) {
  std::string text = displayable(error.what());
  switch (error.kind()) {
  case ClientError::Kind::Unreachable:
    session.complain("the agent cannot be reached: " + text);
    return ExitUnreachable;
  case ClientError::Kind::Interrupted:
    session.complain("the agent ended before it answered; what it had done by then is not known: " +
                     text);
    return ExitUnreachable;
  case ClientError::Kind::Refused:
    session.complain("the agent refused: " + text);
    return ExitRefused;
  case ClientError::Kind::BadReply:
  case ClientError::Kind::DeadlinePassed:
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

int reportingFailures(Session &session, const JSONObject &request,
                      const std::function<int()> &attempt) {
  try {
    return attempt();
  } catch (const ClientError &error) {
    JSONObject object = request;
    session.sayJSON(object.add("success", false).add("error", jsonOfError(error)));
    return complainOf(session, error);
  }
}

} // namespace kw
