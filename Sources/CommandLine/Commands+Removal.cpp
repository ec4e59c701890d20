// Commands that remove items: what they keep, what they would do, and what they
// ask first.
#include "CommandLine/Outcome.h"
#include "CommandLine/PathRequests.h"
#include "CommandLine/RemovalPreview.h"

#include <memory>

namespace kw {
namespace {

// What distinguishes one such command from another.
struct RemovalKind {
  const char *command;
  const char *verb;  // of the question; null: it can be undone, and nothing is asked
  const char *would; // before an item, in a dry run
  bool freesSpace;
  const char *done;       // before an item
  const char *participle; // behind "could not be "
};

struct RemovalOptions {
  std::vector<std::string> keep;
  bool dryRun = false;
  bool yes = false;
};

std::shared_ptr<RemovalOptions> declareOptions(Arguments &arguments, const RemovalKind &kind) {
  auto options = std::make_shared<RemovalOptions>();
  arguments.flag("-n,--dry-run", options->dryRun,
                 "Tell what would go and what that would free, and do nothing");
  arguments.option("--keep", options->keep, "PATTERN",
                   "Leave what matches, and what holds it, in place; a pattern with a slash is for "
                   "whole paths, others for names; may be given again",
                   refuseEmpty);
  if (kind.verb)
    arguments.flag("-y,--yes", options->yes, "Do not ask first");
  return options;
}

// The items to remove in the place of one; those kept are told.
std::vector<std::string> around(Session &session, const RemovalKind &kind, RemovalPlanner &planner,
                                const std::string &path, int &status) {
  RemovalPlan plan = planner.plan(path);
  for (const std::string &kept : plan.kept) {
    session.sayJSON(pathRequest(kind.command, kept).add("success", true).add("kept", true));
    session.say("Kept " + kept);
  }
  for (const std::string &unknown : plan.unknown) {
    std::string reason =
        unknown + " cannot be looked into and is left alone, since it may hold what is kept";
    session.sayFailure(pathRequest(kind.command, unknown)
                           .add("success", false)
                           .add("error", jsonOfReason(reason)));
    session.complain(reason);
    status = worse(status, ExitRefused);
  }
  return plan.exists ? plan.roots : std::vector{path};
}

template <typename Reply>
int removeAll(Session &session, const PathArguments &paths, const RemovalOptions &options,
              const RemovalKind &kind, const PathQuestion<Reply> &question) {
  KeepList keep(options.keep);
  RemovalPlanner planner(keep);
  int status = ExitDone;
  PathSource::Expand expand;
  if (!keep.isEmpty())
    expand = [&](const std::string &path) { return around(session, kind, planner, path, status); };
  PathSource source(session, paths, expand);
  if (kind.verb && session.canAsk(options.yes))
    confirmRemoval(session, kind.verb, source.readAhead(), keep);
  int asked = PathAsker<Reply>(session, source, question).run();
  return worse(status, asked);
}

template <typename Reply>
using Operation = Request<Reply> (Client::*)(const std::string &path, const RequestOptions &);

// The agent counts what is missing as removed; a person wants to know of it.
int tellMissing(Session &session, JSONObject request, const std::string &path) {
  session.sayJSON(request.add("success", true).add("missing", true));
  session.say(path + ": there was nothing there");
  return ExitDone;
}

template <typename Reply>
int tellRemoval(Session &session, const RemovalKind &kind, const AskedPath<Reply> &asked,
                const JSONObject &request) {
  Told told = asked.reply();
  const std::string &path = asked.path;
  if (told.isDone && asked.before == Presence::Missing)
    return tellMissing(session, request, path);
  Wording wording{kind.done + path + (kind.freesSpace ? "" : " to the Trash"),
                  path + " could not be " + kind.participle, path,
                  [&path] { return obstacleToWriting(path); }};
  return tellOutcome(session, request, told, wording);
}

template <typename Reply>
std::function<CommandRun(Arguments &)> removal(const RemovalKind &kind,
                                               Operation<Reply> operation) {
  PathQuestion<Reply> question;
  question.command = kind.command;
  question.participle = kind.participle;
  question.ask = [operation](Client &agent, const std::string &path,
                             const RequestOptions &options) {
    return (agent.*operation)(path, options);
  };
  question.tell = [kind](Session &session, const AskedPath<Reply> &asked,
                         const JSONObject &request) {
    return tellRemoval(session, kind, asked, request);
  };
  return [kind, question](Arguments &arguments) -> CommandRun {
    auto options = declareOptions(arguments, kind);
    auto paths = declarePaths(arguments);
    return [=](Session &session) {
      requirePaths(*paths);
      if (options->dryRun)
        return previewRemoval(session, *paths, KeepList(options->keep),
                              {kind.command, kind.would, kind.freesSpace});
      return removeAll(session, *paths, *options, kind, question);
    };
  };
}

} // namespace

CommandTable removalCommands() {
  RemovalKind remove{"remove", "Remove", "Would remove ", true, "Removed ", "removed"};
  RemovalKind shred{"shred", "Shred", "Would shred ", true, "Shredded ", "shredded"};
  RemovalKind trash{"trash", nullptr,  "Would move to the Trash ",
                    false,   "Moved ", "moved to the Trash"};
  return {
      {"remove",
       "Remove items with all that they hold, locked ones too",
       removal(remove, &Client::removeItemAtPathAsync),
       {{"remove --dry-run /srv/old", "what would go, and how much space that frees"},
        {"remove /srv/old", "the folder and all in it"},
        {"remove ~/Downloads --keep '*.pdf' --keep thesis", "all but these and what holds them"},
        {"remove -0 <list", "the paths that find -print0 wrote to a file"}}},
      {"shred",
       "Overwrite what items hold, then remove them",
       removal(shred, &Client::securelyRemoveItemAtPathAsync),
       {{"shred ~/letters", "each file is overwritten once, under all its names"},
        {"shred --dry-run ~/letters", "tell what would go"}}},
      {"trash",
       "Move items to the Trash of the agent's user",
       removal(trash, &Client::moveToTrashItemAtPathAsync),
       {{"trash /srv/old", "frees nothing until the Trash is emptied"}}},
  };
}

} // namespace kw
