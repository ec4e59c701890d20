// A command of the program as an entry of a table: its name, its line in the
// help, examples, the declaration of its arguments, and its work.
#pragma once

#include "CommandLine/Arguments.h"
#include "CommandLine/Session.h"

#include <functional>
#include <memory>
#include <vector>

namespace kw {

// Does the work and returns the exit status. May throw ClientError.
using CommandRun = std::function<int(Session &session)>;

// A command line as a user types it, and its purpose.
struct Example {
  const char *line; // without the program's name
  const char *meaning;
};

// The one table from which the program's own help, its completions and its
// manual are made.
struct Command {
  const char *name;
  const char *summary;
  // Declares options and arguments, and returns the function to call when they
  // have been read. Null for a noun, which has verbs instead; a command may
  // have both.
  std::function<CommandRun(Arguments &arguments)> declare;
  std::vector<Example> examples{};
  std::vector<Command> verbs{};
  const char *note = ""; // an addition to the help of its arguments and options
  // The command needs any one of these tools, and this file, on the system.
  std::vector<const char *> tools{};
  const char *file = nullptr;
};

using CommandTable = std::vector<Command>;

// Each group has a file of its own.
CommandTable fileCommands();
CommandTable removalCommands();
CommandTable agentCommands();
CommandTable serviceCommands();
CommandTable maintenanceCommands();
// These need no agent.
CommandTable localCommands();

// Declares --dry-run, for commands that change something.
std::shared_ptr<bool> declareDryRun(Arguments &arguments);

inline constexpr const char *forceProtectedHelp =
    "Include protected folders, such as /usr and homes, after you have typed their paths";

// Declares --yes, for commands that ask before work that cannot be undone.
std::shared_ptr<bool> declareYes(Arguments &arguments);

// Makes one request of a command that may make several, such as one for each
// path. Reports a failure to get a reply with the request's own JSON members
// and returns it as the exit status. The subject, such as a path, comes before
// the text for people.
int reportingFailures(Session &session, const JSONObject &request,
                      const std::function<int()> &attempt, const std::string &subject = "");

// The status of a whole command: that of its worst request.
int worse(int left, int right);

} // namespace kw
