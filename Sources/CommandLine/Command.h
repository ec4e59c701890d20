// A command of the program as an entry of a table: its name, its line in the
// help, how its arguments are declared and what it then does.
#pragma once

#include "CommandLine/Session.h"

#include <functional>
#include <vector>

namespace CLI {
class App;
}

namespace kw {

// Does the work and gives the exit status. May throw ClientError.
using CommandRun = std::function<int(Session &session)>;

struct Command {
  const char *name;
  const char *summary;
  // Declares options and arguments; what it returns is called when they have
  // been read.
  std::function<CommandRun(CLI::App &arguments)> declare;
};

using CommandTable = std::vector<Command>;

// Each group stands in a file of its own.
CommandTable fileCommands();
CommandTable agentCommands();
CommandTable serviceCommands();
CommandTable maintenanceCommands();
// These need no agent.
CommandTable localCommands();

// A command with a second word: each word is an entry of a table like that of
// the commands themselves.
std::function<CommandRun(CLI::App &)> commandOfVerbs(CommandTable verbs);

// One request of a command that may make several, such as one for each path.
// A failure to get a reply is reported with the request's own JSON members and
// becomes the exit status.
int reportingFailures(Session &session, const JSONObject &request,
                      const std::function<int()> &attempt);

// The status of a whole command: that of its worst request.
int worse(int left, int right);

} // namespace kw
