// Options are known from the table of the command and from the program's own;
// any other word is the next command, or an operand of the last.
#include "CommandLine/Program.h"

#include "CommandLine/Look.h"
#include "CommandLine/NearWord.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>

namespace kw {
namespace {

struct Group {
  const char *title;
  CommandTable commands;
};

std::vector<Group> allGroups() {
  return {{"Files", fileCommands()},
          {"Removing", removalCommands()},
          {"Exploring", localCommands()},
          {"Jobs that start by themselves, and system software", serviceCommands()},
          {"The system", maintenanceCommands()},
          {"The agent", agentCommands()}};
}

void declare(DeclaredCommand &parent, const Command &command, const char *group) {
  DeclaredCommand &declared = parent.below.emplace_back();
  declared.command = &command;
  declared.group = group;
  declared.words =
      fmt::format("{}{}{}", parent.words, parent.words.empty() ? "" : " ", command.name);
  if (command.declare)
    declared.run = command.declare(declared.arguments);
  for (const Command &verb : command.verbs)
    declare(declared, verb, group);
}

DeclaredCommand &commandCalled(const std::string &name, DeclaredCommand &above) {
  for (DeclaredCommand &command : above.below)
    if (command.command->name == name)
      return command;
  throw UsageError(suggestionFor(name, above.command->verbs));
}

// Tells whether the word is a verb of a command that takes operands, too. When
// it is also the name of an item here, its meaning is unclear.
bool callsVerb(const std::string &word, const DeclaredCommand &command) {
  bool isVerb = !command.arguments.hasOperands() &&
                std::any_of(command.below.begin(), command.below.end(),
                            [&](const auto &verb) { return verb.command->name == word; });
  if (isVerb && presenceOf(word) == Presence::There)
    throw UsageError(fmt::format("there is an item called {0} here: write ./{0} for it, or ask for "
                                 "\"{1} {0}\" in another folder",
                                 word, command.words));
  return isVerb;
}

std::string listed(const std::vector<const DeclaredCommand *> &commands) {
  std::string text;
  for (const DeclaredCommand *command : commands)
    text.append(text.empty() ? "" : ", ").append(command->words);
  return text;
}

// Returns a complaint, or an empty text.
std::string takeSeconds(const std::string &text, std::optional<double> &target) {
  char *end = nullptr;
  double seconds = std::strtod(text.c_str(), &end);
  bool isNumber = !text.empty() && *end == 0 && std::isfinite(seconds);
  if (!isNumber || seconds < 0.001 || seconds > 1e9)
    return fmt::format("\"{}\" is not a number of seconds between 0.001 and 1000000000",
                       displayable(text));
  target = seconds;
  return "";
}

} // namespace

Program::Program(GlobalOptions &options)
    : description_{"keepwell",
                   "Shows where the space of a disk goes, and cleans up with the rights of root.",
                   nullptr} {
  std::vector<const char *> groups;
  for (Group &group : allGroups())
    for (Command &command : group.commands) {
      description_.verbs.push_back(std::move(command));
      groups.push_back(group.title);
    }
  top_.command = &description_;
  for (std::size_t index = 0; index < groups.size(); ++index)
    declare(top_, description_.verbs[index], groups[index]);
  declareOptions(options);
}

void Program::declareOptions(GlobalOptions &options) {
  Arguments &own = top_.arguments;
  own.flag("-h,--help", help_, "List the commands, or describe one");
  own.flag("--json", options.json, "Print one JSON object for each request, also for errors");
  own.flag("-q,--quiet", options.quiet, "Print errors only");
  own.option("--bus", options.bus, "BUS", "The bus: system, session or an address");
  own.option(
      "--timeout", timeout_, "SECONDS",
      "Wait no longer than this for the bus and for each answer; work done by then stays done",
      [&options](const std::string &text) { return takeSeconds(text, options.timeout); });
  own.flag("--version", version_, "Print the version");
  // For the makers of completions and manuals.
  own.flag("--describe", describe_, "").hidden = true;
}

Program::Wish Program::wish() const {
  if (help_)
    return Wish::Help;
  if (version_)
    return Wish::Version;
  return describe_ ? Wish::Description : Wish::Run;
}

void Program::readOn(const std::vector<std::string> &words, DeclaredCommand *&command) {
  bool optionsEnded = false;
  for (std::size_t index = 0; index < words.size();) {
    const std::string &word = words[index];
    bool canBeOption = !optionsEnded && !command->arguments.takesEverything();
    if (canBeOption && word == "--") {
      optionsEnded = true;
      ++index;
    } else if (canBeOption && looksLikeOption(word)) {
      index = takeOption({&command->arguments, &top_.arguments}, words, index);
    } else {
      if (command->run && (optionsEnded || !callsVerb(word, *command)))
        command->arguments.takeOperand(word);
      else
        command = &commandCalled(word, *command);
      ++index;
    }
  }
  if (wish() != Wish::Run)
    return;
  if (!command->run)
    throw UsageError("a command is required; there are: " + listed(runnableBelow(*command)));
  command->arguments.checkIsComplete();
}

Program::Reading Program::read(const std::vector<std::string> &words) {
  DeclaredCommand *command = &top_;
  try {
    readOn(words, command);
  } catch (const UsageError &) {
    if (!help_) // users with a mistake in the command line need the help most
      throw;
  }
  return {wish(), command};
}

std::vector<const DeclaredCommand *> runnableBelow(const DeclaredCommand &command) {
  std::vector<const DeclaredCommand *> found;
  for (const DeclaredCommand &each : command.below) {
    if (each.run)
      found.push_back(&each);
    for (const DeclaredCommand *verb : runnableBelow(each))
      found.push_back(verb);
  }
  return found;
}

std::string missingFor(const Command &command, const Surroundings &surroundings) {
  const auto &tools = command.tools;
  if (!tools.empty() && std::none_of(tools.begin(), tools.end(), surroundings.hasTool))
    return tools.front();
  return command.file && !surroundings.hasFile(command.file) ? command.file : "";
}

} // namespace kw
