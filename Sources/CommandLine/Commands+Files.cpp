// Commands that act on files and folders.
#include "CommandLine/Command.h"
#include "CommandLine/Outcome.h"
#include "Foundation/FileManager.h"
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

struct SizeOptions {
  bool bytes = false;
  bool base2 = false;
  bool local = false;
  bool logical = false;
  bool bulk = false;
};

// Asks the agent, or measures here with the rights of whoever runs the command.
std::uint64_t measuredSize(Session &session, const SizeOptions &options, const std::string &path) {
  if (!options.local)
    return static_cast<std::uint64_t>(session.agent().sizeOfItemAtPath(path).size);
  const RVFileSizer &sizer = RVFileSizer::shared();
  return options.bulk ? sizer.alternativeItemSizeAtPath(path) : sizer.itemSizeAtPath(path);
}

// The measuring itself answers 0 for what is not there; here nobody is served
// by that.
bool isMissing(const SizeOptions &options, const std::string &path, std::optional<NS::Error> &why) {
  return options.local &&
         !NS::FileManager::defaultManager().attributesOfItemAtPath(path, &why).has_value();
}

std::shared_ptr<SizeOptions> declareSizeOptions(CLI::App &arguments) {
  auto options = std::make_shared<SizeOptions>();
  arguments.add_flag("--bytes", options->bytes, "Print plain numbers of bytes");
  arguments.add_flag("--base2", options->base2, "Count in steps of 1024, not 1000");
  CLI::Option *local =
      arguments.add_flag("--local", options->local, "Measure here, without the agent");
  arguments
      .add_flag("--logical", options->logical,
                "Count what files hold, in whole I/O blocks, not what they occupy")
      ->needs(local);
  arguments
      .add_flag("--bulk", options->bulk,
                "Read the folders' attributes in batches: what files and links hold, folders "
                "counting nothing")
      ->needs(local);
  return options;
}

CommandRun declareSize(CLI::App &arguments) {
  auto options = declareSizeOptions(arguments);
  CommandRun measure = forEachPath(
      "size", declarePaths(arguments),
      [options](Session &session, const std::string &path, JSONObject request) {
        std::optional<NS::Error> error;
        if (isMissing(*options, path, error))
          return tellOutcome(session, request, {false, error},
                             {"", displayable(path) + " could not be measured"});
        std::uint64_t size = measuredSize(session, *options, path);
        std::string text =
            RVFileSizer::shared().displayItemSizeFromSize(size, options->base2, true);
        session.say((options->bytes ? std::to_string(size) : text) + "\t" + displayable(path));
        session.sayJSON(request.add("success", true)
                            .add("bytes", static_cast<std::int64_t>(size))
                            .add("text", text));
        return static_cast<int>(ExitDone);
      });
  return [options, measure](Session &session) {
    if (options->logical)
      RVFileSizer::shared().setReturnUncompressedFileSize(true);
    int status = measure(session);
    RVFileSizer::shared().setReturnUncompressedFileSize(false);
    return status;
  };
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
