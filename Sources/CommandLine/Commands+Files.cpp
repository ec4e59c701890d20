// Commands that act on files and folders.
#include "CommandLine/Command.h"
#include "CommandLine/Outcome.h"
#include "Tools/RVFileSizer.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace kw {
namespace {

using Paths = std::shared_ptr<std::vector<std::string>>;

// An empty path would name the current folder.
CLI::Option *declarePath(CLI::Option *option, const char *typeName) {
  return option->required()->type_name(typeName)->check([](const std::string &path) {
    return path.empty() ? std::string("a path must not be empty") : std::string();
  });
}

Paths declarePaths(CLI::App &arguments) {
  auto paths = std::make_shared<std::vector<std::string>>();
  declarePath(arguments.add_option("paths", *paths, "Files or folders"), "PATH");
  return paths;
}

JSONObject pathRequest(const char *command, const std::string &path) {
  JSONObject request;
  request.add("command", command).add("path", path);
  return request;
}

// One request for each path; an agent that cannot be reached is not asked for
// the others.
CommandRun
forEachPath(const char *command, const Paths &paths,
            std::function<int(Session &, const std::string &path, JSONObject request)> attempt) {
  return [=](Session &session) {
    int status = ExitDone;
    for (const std::string &given : *paths) {
      std::string path = absolutePath(given);
      JSONObject request = pathRequest(command, path);
      int one =
          reportingFailures(session, request, [&] { return attempt(session, path, request); });
      status = worse(status, one);
      if (one == ExitUnreachable)
        break;
    }
    return status;
  };
}

// A command that asks one question of the agent for each path.
using PathOperation = FlagReply (Client::*)(const std::string &path);
using PathWording = Wording (*)(const std::string &path);

std::function<CommandRun(CLI::App &)> pathCommand(const char *command, PathOperation operation,
                                                  PathWording wording) {
  return [=](CLI::App &arguments) {
    return forEachPath(command, declarePaths(arguments),
                       [=](Session &session, const std::string &path, const JSONObject &request) {
                         FlagReply reply = (session.agent().*operation)(path);
                         return tellOutcome(session, request, reply, wording(displayable(path)));
                       });
  };
}

Wording removalWording(const std::string &path) {
  return {"Removed " + path, path + " could not be removed"};
}

Wording shreddingWording(const std::string &path) {
  return {"Shredded " + path, path + " could not be shredded"};
}

Wording truncationWording(const std::string &path) {
  return {"Truncated " + path, path + " could not be truncated"};
}

Wording trashWording(const std::string &path) {
  return {"Moved " + path + " to the Trash", path + " could not be moved to the Trash"};
}

CommandRun declareExists(CLI::App &arguments) {
  return forEachPath("exists", declarePaths(arguments),
                     [](Session &session, const std::string &path, JSONObject request) {
                       FlagReply reply = session.agent().fileExistsAtPath(path);
                       session.say(displayable(path) +
                                   (reply.success ? " exists" : " does not exist"));
                       session.sayJSON(request.add("success", true).add("exists", reply.success));
                       return reply.success ? ExitDone : ExitRefused;
                     });
}

CommandRun declareMove(CLI::App &arguments) {
  auto source = std::make_shared<std::string>();
  auto destination = std::make_shared<std::string>();
  declarePath(arguments.add_option("source", *source, "What to move"), "SOURCE");
  declarePath(arguments.add_option("destination", *destination, "Its whole new path"),
              "DESTINATION");
  return [=](Session &session) {
    std::string from = absolutePath(*source);
    std::string to = absolutePath(*destination);
    JSONObject request = pathRequest("move", from);
    request.add("destination", to);
    return reportingFailures(session, request, [&] {
      FlagReply reply = session.agent().moveItemAtPath(from, to);
      return tellOutcome(session, request, reply,
                         {"Moved " + displayable(from) + " to " + displayable(to),
                          displayable(from) + " could not be moved to " + displayable(to)});
    });
  };
}

CommandRun declareSize(CLI::App &arguments) {
  auto bytes = std::make_shared<bool>(false);
  arguments.add_flag("--bytes", *bytes, "Print plain numbers of bytes");
  return forEachPath(
      "size", declarePaths(arguments),
      [bytes](Session &session, const std::string &path, JSONObject request) {
        std::int64_t size = session.agent().sizeOfItemAtPath(path).size;
        std::string text =
            RVFileSizer::shared().displayItemSizeFromSize(static_cast<std::uint64_t>(size));
        session.say((*bytes ? std::to_string(size) : text) + "\t" + displayable(path));
        session.sayJSON(request.add("success", true).add("bytes", size).add("text", text));
        return ExitDone;
      });
}

} // namespace

CommandTable fileCommands() {
  return {
      {"exists", "Tell whether something stands at a path, links followed", declareExists},
      {"size", "Tell how much space items take on disk", declareSize},
      {"remove", "Remove items with all that they hold, locked ones too",
       pathCommand("remove", &Client::removeItemAtPath, removalWording)},
      {"shred", "Overwrite what items hold, then remove them",
       pathCommand("shred", &Client::securelyRemoveItemAtPath, shreddingWording)},
      {"truncate", "Cut files to length zero",
       pathCommand("truncate", &Client::truncateFileAtPath, truncationWording)},
      {"move", "Move an item to a new path, making missing folders", declareMove},
      {"trash", "Move items to the Trash of the agent's user",
       pathCommand("trash", &Client::moveToTrashItemAtPath, trashWording)},
  };
}

} // namespace kw
