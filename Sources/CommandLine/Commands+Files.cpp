// Commands that act on files and folders.
#include "CommandLine/MeasuredTree.h"
#include "CommandLine/Outcome.h"
#include "CommandLine/PathRequests.h"
#include "CommandLine/Quantities.h"
#include "CommandLine/RemovalPreview.h"
#include "CommandLine/SizeCommand.h"
#include "Tools/RVFileSizer.h"

#include <chrono>
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

// The command itself sees whether the file can be cut, and how much that frees:
// all of the file, since it is cut under all its hard links.
int previewTruncation(Session &session, const std::string &path) {
  JSONObject request = pathRequest("truncate", path);
  request.add("dryRun", true);
  if (auto obstacle = obstacleToTruncation(path))
    return tellOutcome(session, request, false,
                       {"", path + " could not be truncated", path, [&] { return obstacle; }});
  auto bytes = RVFileSizer::shared().itemSizeAtPath(path);
  session.say(fmt::format("Would truncate {}, freeing {}", path, sizeInWords(bytes)));
  session.sayJSON(request.add("success", true).add("freed", bytes));
  return ExitDone;
}

CommandRun declareTruncate(Arguments &arguments) {
  auto dryRun = declareDryRun(arguments);
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
  return [dryRun, yes, paths, question](Session &session) {
    requirePaths(*paths);
    PathSource source(session, *paths);
    if (*dryRun)
      return tellForEachPath(session, "truncate", source, [&](const std::string &path) {
        return previewTruncation(session, path);
      });
    if (session.canAsk(*yes))
      confirmRemoval(session, "Truncate", source.readAhead(), KeepList({}), true);
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

struct MoveOptions {
  std::string source;
  std::string destination;
  bool mayTakeProtected = false;
};

int previewMove(Session &session, const std::string &from, const std::string &to,
                JSONObject request) {
  request.add("dryRun", true);
  std::string obstacle;
  if (presenceOf(from) == Presence::Missing)
    obstacle = "there is nothing there";
  else if (presenceOf(to) == Presence::There)
    obstacle = "there is already an item at " + to;
  if (!obstacle.empty())
    return tellOutcome(session, request, false,
                       {"", from + " could not be moved", from, [&] { return obstacle; }});
  auto tree = TreeMeasurer({.depth = 0}, measuringByAgent(session), showingAdvance(session))
                  .measure(from)
                  .value_or(MeasuredTree{});
  if (session.isStopped())
    return tellStoppedEarly(session, request);
  session.say(fmt::format("Would move {} to {}: {}, {}", from, to, itemsInWords(tree.root.items),
                          sizeInWords(tree.root.bytes)));
  session.sayJSON(
      request.add("success", true).add("items", tree.root.items).add("allocated", tree.root.bytes));
  return ExitDone;
}

// Such as "4 items, 164 KB moved, 0.2 s". A move within a volume is done at once,
// even of a large tree, so counting its items gets no more than a second.
void sayMoved(Session &session, const std::string &to, std::chrono::steady_clock::duration took) {
  using namespace std::chrono_literals;
  session.flush();
  auto end = session.now() + 1s;
  auto left = [&] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(end - session.now());
  };
  Measure beyond = [&](const std::string &path) { return measuringByAgent(session, left())(path); };
  Watch watch = [&](const RequestProgress &) { return left() > 0ms; };
  auto tree = TreeMeasurer({.depth = 0}, beyond, watch).measure(to);
  if (!tree)
    return;
  bool isAll = tree->isWhole && tree->root.sight == MeasuredItem::Sight::Whole;
  session.say(fmt::format("{}{}, {} moved, {}", isAll ? "" : "at least ",
                          itemsInWords(tree->root.items), sizeInWords(tree->root.bytes),
                          durationInWords(took)));
}

int moveItem(Session &session, const std::string &from, const std::string &to,
             const JSONObject &request) {
  return reportingFailures(session, request, [&] {
    auto start = session.now();
    Told reply =
        session.await(session.agent().moveItemAtPathAsync(from, to, session.requestOptions()));
    auto took = session.now() - start;
    int status =
        tellOutcome(session, request, reply,
                    {"Moved " + from + " to " + to, from + " could not be moved to " + to, from});
    if (status == ExitDone && session.isWatched())
      sayMoved(session, to, took);
    return status;
  });
}

CommandRun declareMove(Arguments &arguments) {
  auto options = std::make_shared<MoveOptions>();
  auto dryRun = declareDryRun(arguments);
  arguments.flag("--force-protected", options->mayTakeProtected, forceProtectedHelp);
  arguments.operand("source", options->source, "SOURCE", "The item to move");
  arguments.operand("destination", options->destination, "DESTINATION", "Its full new path");
  return [=](Session &session) {
    std::string from = absolutePath(options->source);
    std::string to = absolutePath(options->destination);
    JSONObject request = pathRequest("move", from);
    request.addName("destination", to);
    Telling refusal = options->mayTakeProtected ? nullptr : refusalOfProtected(from);
    if (refusal)
      return refusal(session, request);
    if (*dryRun)
      return previewMove(session, from, to, request);
    confirmProtected(session, "Move", {from});
    return moveItem(session, from, to, request);
  };
}

} // namespace

CommandTable fileCommands() {
  return {
      sizeCommand(),
      {"exists",
       "Tell whether an item exists at a path; links are followed",
       declareExists,
       {{"exists /etc/hosts", "exit status 0 if so, 1 if not"}}},
      {"truncate",
       "Cut files to length zero",
       declareTruncate,
       {{"truncate /var/log/example.log", "for a file that a program holds open"}}},
      {"move",
       "Move an item to a new path, making missing folders",
       declareMove,
       {{"move /srv/old /mnt/archive/old", "give the full new path; a move replaces no item"}}},
  };
}

} // namespace kw
