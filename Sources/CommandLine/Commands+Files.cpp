// Commands that act on files and folders.
#include "CommandLine/Outcome.h"
#include "CommandLine/PathRequests.h"
#include "Foundation/FileManager.h"
#include "Tools/RVFileSizer.h"

#include <memory>

namespace kw {
namespace {

// Paths as arguments, or as standard input has them.
template <typename Reply>
CommandRun forEachPath(const std::shared_ptr<PathArguments> &paths,
                       const PathQuestion<Reply> &question) {
  return [=](Session &session) {
    requirePaths(*paths);
    return askForEachPath(session, PathSource(*paths, session.input()), question);
  };
}

CommandRun declareTruncate(Arguments &arguments) {
  auto yes = declareYes(arguments);
  auto paths = declarePaths(arguments);
  PathQuestion<FlagReply> question;
  question.command = "truncate";
  question.ask = [](Client &agent, const std::string &path, const RequestOptions &options) {
    return agent.truncateFileAtPathAsync(path, options);
  };
  question.tell = [](Session &session, const std::string &path, const JSONObject &request,
                     const FlagReply &reply) {
    std::string shown = displayable(path);
    return tellOutcome(session, request, reply,
                       {"Truncated " + shown, shown + " could not be truncated"});
  };
  return [yes, paths, askAll = forEachPath(paths, question)](Session &session) {
    requirePaths(*paths);
    session.confirm("Truncate what is named, for good?", *yes);
    return askAll(session);
  };
}

CommandRun declareExists(Arguments &arguments) {
  PathQuestion<ExistenceReply> question;
  question.command = "exists";
  question.ask = [](Client &agent, const std::string &path, const RequestOptions &options) {
    return agent.fileExistsAtPathAsync(path, options);
  };
  question.tell = [](Session &session, const std::string &path, JSONObject request,
                     const ExistenceReply &reply) {
    bool exists = reply.existence == Existence::Exists;
    session.say(displayable(path) + (exists ? " exists" : " does not exist"));
    session.sayJSON(request.add("success", true).add("exists", exists));
    return exists ? ExitDone : ExitRefused;
  };
  return forEachPath(declarePaths(arguments), question);
}

CommandRun declareMove(Arguments &arguments) {
  auto source = std::make_shared<std::string>();
  auto destination = std::make_shared<std::string>();
  arguments.operand("source", *source, "SOURCE", "What to move");
  arguments.operand("destination", *destination, "DESTINATION", "Its whole new path");
  return [=](Session &session) {
    std::string from = absolutePath(*source);
    std::string to = absolutePath(*destination);
    JSONObject request = pathRequest("move", from);
    request.add("destination", to);
    return reportingFailures(session, request, [&] {
      Told reply = session.agent().moveItemAtPath(from, to, session.requestOptions());
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

// The measuring itself answers 0 for what is not there; here nobody is served
// by that.
bool isMissing(const std::string &path, std::optional<NS::Error> &why) {
  return !NS::FileManager::defaultManager().attributesOfItemAtPath(path, &why).has_value();
}

std::shared_ptr<SizeOptions> declareSizeOptions(Arguments &arguments) {
  auto options = std::make_shared<SizeOptions>();
  arguments.flag("--bytes", options->bytes, "Print plain numbers of bytes");
  arguments.flag("--base2", options->base2, "Count in steps of 1024, not 1000");
  Argument &local = arguments.flag("--local", options->local, "Measure here, without the agent");
  arguments
      .flag("--logical", options->logical,
            "Count what files hold, in whole I/O blocks, not what they occupy")
      .needs = &local;
  arguments
      .flag("--bulk", options->bulk,
            "Read the folders' attributes in batches: what files and links hold, folders "
            "counting nothing")
      .needs = &local;
  return options;
}

int tellSize(Session &session, const SizeOptions &options, const std::string &path,
             JSONObject request, std::uint64_t size) {
  std::string text = RVFileSizer::shared().displayItemSizeFromSize(size, options.base2, true);
  session.say((options.bytes ? std::to_string(size) : text) + "\t" + displayable(path));
  session.sayJSON(request.add("success", true).add("bytes", size).add("text", text));
  return ExitDone;
}

// With the rights of whoever runs the command.
int measureHere(Session &session, const SizeOptions &options, const std::string &path) {
  JSONObject request = pathRequest("size", path);
  std::optional<NS::Error> error;
  if (isMissing(path, error))
    return tellOutcome(session, request, {false, error},
                       {"", displayable(path) + " could not be measured"});
  const RVFileSizer &sizer = RVFileSizer::shared();
  return tellSize(session, options, path, request,
                  options.bulk ? sizer.alternativeItemSizeAtPath(path)
                               : sizer.itemSizeAtPath(path));
}

int measureAllHere(Session &session, const SizeOptions &options, const PathArguments &arguments) {
  if (options.logical)
    RVFileSizer::shared().setReturnUncompressedFileSize(true);
  int status =
      tellForEachPath(session, "size", PathSource(arguments, session.input()),
                      [&](const std::string &path) { return measureHere(session, options, path); });
  RVFileSizer::shared().setReturnUncompressedFileSize(false);
  return status;
}

CommandRun declareSize(Arguments &arguments) {
  auto options = declareSizeOptions(arguments);
  auto paths = declarePaths(arguments);
  PathQuestion<SizeReply> question;
  question.command = "size";
  question.ask = [](Client &agent, const std::string &path, const RequestOptions &request) {
    return agent.sizeOfItemAtPathAsync(path, request);
  };
  question.tell = [options](Session &session, const std::string &path, const JSONObject &request,
                            const SizeReply &reply) {
    return tellSize(session, *options, path, request, reply.allocatedBytes);
  };
  return [options, paths, askAll = forEachPath(paths, question)](Session &session) {
    requirePaths(*paths);
    return options->local ? measureAllHere(session, *options, *paths) : askAll(session);
  };
}

} // namespace

CommandTable fileCommands() {
  return {
      {"size",
       "Tell how much space items take on disk",
       declareSize,
       {{"size /usr /var", "a line for each"},
        {"size --bytes ~/Downloads", "a plain number"},
        {"size --local ~", "measured with your own rights, without the agent"}}},
      {"exists",
       "Tell whether something stands at a path, links followed",
       declareExists,
       {{"exists /etc/hosts", "exit status 0 if so, 1 if not"}}},
      {"truncate",
       "Cut files to length zero",
       declareTruncate,
       {{"truncate /var/log/example.log", "for a file that a program holds open"}}},
      {"move",
       "Move an item to a new path, making missing folders",
       declareMove,
       {{"move /srv/old /mnt/archive/old", "the whole new path; nothing is replaced"}}},
  };
}

} // namespace kw
