// From the arguments to the one command that they name.
#include "CommandLine/CommandLine.h"

#include "CommandLine/Command.h"
#include "CommandLine/Description.h"
#include "CommandLine/NearWord.h"
#include "Foundation/Identity.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ostream>
#include <sstream>

namespace kw {
namespace {

constexpr const char *footer =
    "Relative paths are taken from the current folder.\n"
    "Where standard input and standard error are both terminals, what cannot be\n"
    "undone is asked about first, unless --yes is given; elsewhere it is done.\n"
    "Exit status: 0 done, 1 not done, 2 usage, 3 no answer from the agent.\n"
    "What --json prints is described by share/keepwell/keepwell-output.schema.json.\n"
    "Each command has a --help with examples.";

constexpr const char *exitStatuses =
    "Exit status: 0 done, 1 not done, 2 usage, 3 no answer from the agent.";

struct Group {
  const char *title;
  CommandTable commands;
};

std::vector<Group> allGroups() {
  return {{"Files", fileCommands()},
          {"Removing", removalCommands()},
          {"Without the agent", localCommands()},
          {"What starts by itself, and system software", serviceCommands()},
          {"The system", maintenanceCommands()},
          {"The agent", agentCommands()}};
}

void declareGlobals(CLI::App &app, GlobalOptions &options, bool &describe) {
  app.add_flag("--json", options.json, "Print one JSON object for each request, errors too");
  app.add_flag("-q,--quiet", options.quiet, "Print nothing but what went wrong");
  app.add_option("--bus", options.bus, "The bus: system, session or an address")
      ->capture_default_str()
      ->type_name("BUS");
  app.add_option("--timeout", options.timeout,
                 "Wait for each answer no longer than this; the agent goes on all the same")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 1e9).description(""));
  app.set_version_flag("--version", "keepwell " + std::string(kAgentBundleVersion));
  // For the makers of completions and manuals.
  app.add_flag("--describe", describe)->group("");
  app.require_subcommand(0, 1);
  app.fallthrough();
}

std::string footerOf(const Command &command) {
  std::string text = command.note;
  if (!command.examples.empty())
    text += (text.empty() ? "" : "\n") + std::string("Examples:\n");
  for (const Example &example : command.examples)
    text += std::string("  keepwell ") + example.line + "\n      " + example.meaning + "\n";
  return text + exitStatuses;
}

void declare(CLI::App &parent, const Command &command, const std::string &group,
             CommandRun &chosen) {
  CLI::App *app = parent.add_subcommand(command.name, command.summary)->group(group);
  if (command.declare) {
    CommandRun run = command.declare(*app);
    app->callback([&chosen, run = std::move(run)] { chosen = run; });
  } else {
    app->require_subcommand(1);
    for (const Command &verb : command.verbs)
      declare(*app, verb, "Subcommands", chosen);
  }
  app->footer(footerOf(command));
}

void sayUsageAsJSON(const std::string &what, const Surroundings &surroundings) {
  JSONObject complaint;
  complaint.add("kind", "usage").add("description", what);
  *surroundings.out << JSONObject().add("success", false).add("error", complaint).text()
                    << std::endl;
}

// Help and version are no failures to the parser's caller, the rest is.
int reportParsing(const CLI::App &app, const CLI::ParseError &error, bool json,
                  const std::string &suggestion, const Surroundings &surroundings) {
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    app.exit(error, *surroundings.out, *surroundings.err);
    return ExitDone;
  }
  if (json)
    sayUsageAsJSON(suggestion.empty() ? error.what() : suggestion, surroundings);
  else if (!suggestion.empty())
    *surroundings.err << "keepwell: " << suggestion << std::endl;
  else
    app.exit(error, *surroundings.out, *surroundings.err);
  return ExitUsage;
}

int reportUsage(const std::string &what, bool json, const Surroundings &surroundings) {
  if (json)
    sayUsageAsJSON(what, surroundings);
  else
    *surroundings.err << "keepwell: " << what << "\nRun with --help for more information."
                      << std::endl;
  return ExitUsage;
}

// The flag may stand anywhere, also behind what could not be understood.
bool asksForJSON(int count, const char *const *arguments) {
  return std::any_of(arguments, arguments + count,
                     [](const char *argument) { return std::string_view(argument) == "--json"; });
}

int run(const CommandRun &chosen, const GlobalOptions &options, const Surroundings &surroundings) {
  Session session(surroundings, options);
  int status = ExitDone;
  try {
    status = chosen(session);
  } catch (const UsageError &error) {
    return reportUsage(error.what(), options.json, surroundings);
  } catch (const NotConfirmed &error) {
    JSONObject reason = JSONObject().add("kind", "declined").add("description", error.what());
    session.sayFailure(JSONObject().add("success", false).add("error", reason));
    session.complain(error.what());
    return ExitRefused;
  }
  // An answer that could not be written was not given.
  surroundings.out->flush();
  if (surroundings.out->good())
    return status;
  *surroundings.err << "keepwell: the answer could not be written" << std::endl;
  return std::max<int>(status, ExitRefused);
}

} // namespace

std::shared_ptr<bool> declareYes(CLI::App &arguments) {
  auto yes = std::make_shared<bool>(false);
  arguments.add_flag("-y,--yes", *yes, "Do not ask first");
  return yes;
}

int runCommandLine(int count, const char *const *arguments, const Surroundings &surroundings) {
  CLI::App app("Asks the privileged agent to do what needs root.", "keepwell");
  GlobalOptions options;
  bool describe = false;
  declareGlobals(app, options, describe);
  CommandRun chosen;
  CommandTable all;
  for (const Group &group : allGroups()) {
    for (const Command &command : group.commands)
      declare(app, command, group.title, chosen);
    all.insert(all.end(), group.commands.begin(), group.commands.end());
  }
  app.footer(footer); // now, or the commands would have it too
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError &error) {
    return reportParsing(app, error, asksForJSON(count, arguments),
                         suggestionFor(all, count, arguments), surroundings);
  }
  if (describe) {
    *surroundings.out << description(app, all).text() << std::endl;
    return ExitDone;
  }
  if (!chosen)
    return reportUsage("a command is required", options.json, surroundings);
  return run(chosen, options, surroundings);
}

} // namespace kw
