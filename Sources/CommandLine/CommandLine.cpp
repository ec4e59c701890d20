// Reads the arguments, and runs the command that they name.
#include "CommandLine/CommandLine.h"

#include "CommandLine/Command.h"
#include "CommandLine/Description.h"
#include "CommandLine/Help.h"
#include "Protocol/Identity.h"

#include <algorithm>
#include <fmt/format.h>
#include <ostream>

namespace kw {
namespace {

int reportUsage(const std::string &what, bool json, const Surroundings &surroundings) {
  if (json) {
    JSONObject complaint = JSONObject().add("kind", "usage").add("description", what);
    *surroundings.out << JSONObject().add("success", false).add("error", complaint).text()
                      << std::endl;
  } else {
    *surroundings.err << "keepwell: " << what << "\nRun with --help for more information."
                      << std::endl;
  }
  return ExitUsage;
}

// The flag may be at any place, even after an invalid argument.
bool asksForJSON(const std::vector<std::string> &words) {
  return std::find(words.begin(), words.end(), "--json") != words.end();
}

int refuseWithout(const std::string &missing, const DeclaredCommand &command, Session &session) {
  std::string reason =
      fmt::format("{} needs {}, which this system does not have", command.words, missing);
  session.sayFailure(JSONObject()
                         .add("command", command.words)
                         .add("success", false)
                         .add("error", jsonOfReason(reason, "unavailable")));
  session.complain(reason);
  return ExitRefused;
}

int run(const DeclaredCommand &command, const GlobalOptions &options,
        const Surroundings &surroundings) {
  Session session(surroundings, options);
  std::string missing = missingFor(*command.command, surroundings);
  if (!missing.empty())
    return refuseWithout(missing, command, session);
  try {
    int status = command.run(session);
    return status == ExitStopped ? ExitStopped + session.alarm()->stopSignal() : status;
  } catch (const NotConfirmed &error) {
    JSONObject reason = JSONObject().add("kind", "declined").add("description", error.what());
    session.sayFailure(JSONObject().add("success", false).add("error", reason));
    session.complain(error.what());
    return ExitRefused;
  }
}

int answer(Program &program, const std::vector<std::string> &words, const GlobalOptions &options,
           const Surroundings &surroundings) {
  if (words.empty() && surroundings.outIsTerminal) {
    *surroundings.out << firstMinute();
    return ExitDone;
  }
  auto [wish, command] = program.read(words);
  switch (wish) {
  case Program::Wish::Help:
    *surroundings.out << helpFor(program, *command, surroundings);
    return ExitDone;
  case Program::Wish::Version:
    *surroundings.out << "keepwell " << kAgentBundleVersion << '\n';
    return ExitDone;
  case Program::Wish::Description:
    *surroundings.out << description(program).text() << '\n';
    return ExitDone;
  case Program::Wish::Run:
    break;
  }
  return run(*command, options, surroundings);
}

} // namespace

std::shared_ptr<bool> declareDryRun(Arguments &arguments) {
  auto dryRun = std::make_shared<bool>(false);
  arguments.flag(
      "-n,--dry-run", *dryRun,
      "Show the work that would be done and the space that it would free; change nothing");
  return dryRun;
}

std::shared_ptr<bool> declareYes(Arguments &arguments) {
  auto yes = std::make_shared<bool>(false);
  arguments.flag("-y,--yes", *yes, "Do not ask first");
  return yes;
}

int runCommandLine(int count, const char *const *arguments, const Surroundings &surroundings) {
  std::vector<std::string> words(arguments + std::min(count, 1), arguments + count);
  GlobalOptions options;
  Program program(options);
  int status = ExitDone;
  try {
    status = answer(program, words, options, surroundings);
  } catch (const UsageError &error) {
    status = reportUsage(error.what(), options.json || asksForJSON(words), surroundings);
  }
  // Output that was lost, as on a full disk, must not end with status 0.
  surroundings.out->flush();
  if (surroundings.out->good())
    return status;
  *surroundings.err << "keepwell: the answer could not be written" << std::endl;
  return std::max<int>(status, ExitRefused);
}

} // namespace kw
