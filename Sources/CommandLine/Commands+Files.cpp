// Commands that act on files and folders.
#include "CommandLine/Outcome.h"
#include "CommandLine/PathRequests.h"
#include "CommandLine/RemovalPreview.h"
#include "Foundation/FileManager.h"
#include "Tools/RVFileSizer.h"

#include <fmt/format.h>
#include <memory>

namespace kw {
namespace {

// Paths as arguments, or as standard input has them.
template <typename Reply>
CommandRun forEachPath(const std::shared_ptr<PathArguments> &paths,
                       const PathQuestion<Reply> &question) {
  return [=](Session &session) {
    requirePaths(*paths);
    PathSource source(session, *paths);
    return PathAsker<Reply>(session, source, question).run();
  };
}

CommandRun declareTruncate(Arguments &arguments) {
  auto yes = declareYes(arguments);
  auto paths = declarePaths(arguments);
  PathQuestion<FlagReply> question;
  question.command = "truncate";
  question.participle = "truncated";
  question.ask = [](Client &agent, const std::string &path, const RequestOptions &options) {
    return agent.truncateFileAtPathAsync(path, options);
  };
  question.tell = [](Session &session, const AskedPath<FlagReply> &asked,
                     const JSONObject &request) {
    const std::string &path = asked.path;
    return tellOutcome(session, request, asked.reply(),
                       {"Truncated " + path, path + " could not be truncated", path,
                        [&path] { return obstacleToTruncation(path); }});
  };
  return [yes, paths, question](Session &session) {
    requirePaths(*paths);
    PathSource source(session, *paths);
    if (session.canAsk(*yes))
      confirmRemoval(session, "Truncate", source.readAhead(), KeepList({}));
    return PathAsker<FlagReply>(session, source, question).run();
  };
}

CommandRun declareExists(Arguments &arguments) {
  PathQuestion<ExistenceReply> question;
  question.command = "exists";
  question.participle = "found";
  question.ask = [](Client &agent, const std::string &path, const RequestOptions &options) {
    return agent.fileExistsAtPathAsync(path, options);
  };
  question.tell = [](Session &session, const AskedPath<ExistenceReply> &asked, JSONObject request) {
    bool exists = asked.reply().existence == Existence::Exists;
    session.say(asked.path + (exists ? " exists" : " does not exist"));
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
    request.addName("destination", to);
    return reportingFailures(session, request, [&] {
      Told reply =
          session.await(session.agent().moveItemAtPathAsync(from, to, session.requestOptions()));
      return tellOutcome(
          session, request, reply,
          {"Moved " + from + " to " + to, from + " could not be moved to " + to, from});
    });
  };
}

struct SizeOptions {
  bool bytes = false;
  bool base2 = false;
  bool local = false;
  bool logical = false;
  bool bulk = false;
  bool once = false;
};

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
  arguments.flag("--once", options->once,
                 "Count as du and remove --dry-run do: each folder once, and each file once "
                 "whatever its names");
  return options;
}

int tellSize(Session &session, const SizeOptions &options, const std::string &path,
             JSONObject request, std::uint64_t size) {
  std::string text = sizeInWords(size, options.base2);
  session.say(options.bytes ? std::to_string(size) : text, path);
  session.sayJSON(request.add("success", true).add("bytes", size).add("text", text));
  return ExitDone;
}

// The measuring itself answers 0 for what is not there; here nobody is served
// by that.
int tellMissing(Session &session, JSONObject request, const std::string &path) {
  const char *reason = "there is nothing there";
  session.sayFailure(request.add("success", false).add("error", jsonOfReason(reason)));
  session.complain(fmt::format("{}: {}", path, reason));
  return ExitRefused;
}

// Only the agent sees into a folder that is closed to this user.
bool isMissing(Session &session, const AskedPath<SizeReply> &asked) {
  if (asked.reply().allocatedBytes > 0 || asked.before != Presence::Unknown)
    return asked.before == Presence::Missing && asked.reply().allocatedBytes == 0;
  return session.await(session.agent().fileExistsAtPathAsync(asked.path, session.requestOptions()))
             .existence == Existence::Missing;
}

// As du counts.
int measureOnce(Session &session, const SizeOptions &options, RemovalPlanner &planner,
                const std::string &path) {
  JSONObject request = pathRequest("size", path);
  RemovalPlan plan = planner.plan(path);
  if (!plan.exists)
    return tellMissing(session, request, path);
  for (const std::string &unknown : plan.unknown)
    session.complain(unknown + " cannot be looked into; what it holds is not counted");
  return tellSize(session, options, path, request, plan.allocatedBytes);
}

int measureAllOnce(Session &session, const SizeOptions &options, const PathArguments &arguments) {
  KeepList nothing({});
  RemovalPlanner planner(nothing, RemovalPlanner::Volumes::All,
                         options.local ? nullptr : measuringByAgent(session));
  PathSource source(session, arguments);
  return tellForEachPath(session, "size", source, [&](const std::string &path) {
    return measureOnce(session, options, planner, path);
  });
}

// With the rights of the user who runs the command.
int measureHere(Session &session, const SizeOptions &options, const std::string &path) {
  JSONObject request = pathRequest("size", path);
  std::optional<NS::Error> error;
  if (!NS::FileManager::defaultManager().attributesOfItemAtPath(path, &error))
    return presenceOf(path) == Presence::Missing
               ? tellMissing(session, request, path)
               : tellOutcome(session, request, {false, error},
                             {"", path + " could not be measured", path});
  const RVFileSizer &sizer = RVFileSizer::shared();
  return tellSize(session, options, path, request,
                  options.bulk ? sizer.alternativeItemSizeAtPath(path)
                               : sizer.itemSizeAtPath(path));
}

int measureAllHere(Session &session, const SizeOptions &options, const PathArguments &arguments) {
  if (options.logical)
    RVFileSizer::shared().setReturnUncompressedFileSize(true);
  PathSource source(session, arguments);
  int status = tellForEachPath(session, "size", source, [&](const std::string &path) {
    return measureHere(session, options, path);
  });
  RVFileSizer::shared().setReturnUncompressedFileSize(false);
  return status;
}

CommandRun declareSize(Arguments &arguments) {
  auto options = declareSizeOptions(arguments);
  auto paths = declarePaths(arguments);
  PathQuestion<SizeReply> question;
  question.command = "size";
  question.participle = "measured";
  question.ask = [](Client &agent, const std::string &path, const RequestOptions &request) {
    return agent.sizeOfItemAtPathAsync(path, request);
  };
  question.tell = [options](Session &session, const AskedPath<SizeReply> &asked,
                            const JSONObject &request) {
    const SizeReply &reply = asked.reply();
    if (reply.error)
      return tellOutcome(session, request, {false, reply.error},
                         {"", asked.path + " could not be measured", asked.path});
    if (asked.reply().error)
      return tellOutcome(session, request, {false, asked.reply().error},
                         {"", asked.path + " could not be measured", asked.path});
    if (isMissing(session, asked))
      return tellMissing(session, request, asked.path);
    return tellSize(session, *options, asked.path, request, reply.allocatedBytes);
  };
  return [options, paths, askAll = forEachPath(paths, question)](Session &session) {
    requirePaths(*paths);
    if (options->once && (options->logical || options->bulk))
      throw UsageError(
          "--once counts what is occupied, and so goes with none of --logical, --bulk");
    if (options->once)
      return measureAllOnce(session, *options, *paths);
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
        {"size --once ~/Downloads", "as du counts"},
        {"size --local ~", "measured with your own rights, without the agent"}},
       {},
       "The agent counts each folder twice, and a file with several hard links once for each; "
       "so this is more than du tells, unless --once is given."},
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
