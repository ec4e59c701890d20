// Commands that remove items: the items that they keep, their dry runs, and
// their questions.
#include "CommandLine/Outcome.h"
#include "CommandLine/PathRequests.h"
#include "CommandLine/ProtectedPaths.h"
#include "CommandLine/Quantities.h"
#include "CommandLine/RemovalPreview.h"
#include "CommandLine/TrashCommands.h"

#include <fmt/format.h>

#include <memory>

namespace kw {
namespace {

// The differences between such commands.
struct RemovalKind {
  const char *command;
  const char *verb;  // of the question
  bool asks;         // since it cannot be undone
  const char *would; // before an item, in a dry run
  bool freesSpace;
  const char *done;       // before an item
  const char *participle; // after "could not be "
};

struct RemovalOptions {
  std::vector<std::string> keep;
  std::shared_ptr<bool> dryRun;
  bool yes = false;
  bool mayTakeProtected = false;
};

std::shared_ptr<RemovalOptions> declareOptions(Arguments &arguments, const RemovalKind &kind) {
  auto options = std::make_shared<RemovalOptions>();
  options->dryRun = declareDryRun(arguments);
  arguments.option("--keep", options->keep, "PATTERN",
                   "Keep matching items and the folders that hold them; a pattern with a slash is "
                   "for whole paths, others for names; may be given again",
                   refuseEmpty);
  arguments.flag("--force-protected", options->mayTakeProtected, forceProtectedHelp);
  if (kind.asks)
    arguments.flag("-y,--yes", options->yes, "Do not ask first");
  return options;
}

void tellLeft(Session &session, const RemovalKind &kind, const std::string &path,
              const std::string &reason, int &status) {
  session.sayFailure(
      pathRequest(kind.command, path).add("success", false).add("error", jsonOfReason(reason)));
  session.complain(reason);
  status = worse(status, ExitRefused);
}

// The items to remove in the place of one. Reports those that stay.
std::vector<std::string> around(Session &session, const RemovalKind &kind, RemovalPlanner &planner,
                                const std::string &path, int &status) {
  RemovalPlan plan = planner.plan(path);
  for (const std::string &kept : plan.kept) {
    session.sayJSON(pathRequest(kind.command, kept).add("success", true).add("kept", true));
    session.say("Kept " + kept);
  }
  for (const std::string &unknown : plan.unknown)
    tellLeft(session, kind, unknown,
             unknown + " cannot be read and stays, since it may hold items to keep", status);
  for (const std::string &refusal : plan.refusals)
    tellLeft(session, kind, path, refusal, status);
  return plan.exists ? plan.roots : std::vector{path};
}

// "4 items, 164 KB freed, 0.2 s", or how many paths it was.
std::string summary(const RemovalKind &kind, const RemovalSum &planned, std::size_t done,
                    std::size_t told, const std::string &time) {
  if (done == told && planned.paths > 0)
    return fmt::format("{}, {} freed, {}", planned.itemsInWords(), sizeInWords(planned.freed),
                       time);
  if (told < 2)
    return "";
  return done == told ? fmt::format("{} paths done, {}", told, time)
                      : fmt::format("{} of {} {}, {}", done, told, kind.participle, time);
}

template <typename Reply>
int removeAll(Session &session, const PathArguments &paths, const RemovalOptions &options,
              const RemovalKind &kind, PathQuestion<Reply> question) {
  KeepList keep(options.keep);
  RemovalPlanner planner(keep);
  int status = ExitDone;
  PathSource::Expand expand;
  auto isRefused = [&](const std::string &path) {
    return !options.mayTakeProtected && protectionOf(path);
  };
  if (!keep.isEmpty())
    expand = [&](const std::string &path) {
      return isRefused(path) ? std::vector{path} : around(session, kind, planner, path, status);
    };
  PathSource source(session, paths, expand);
  if (options.mayTakeProtected)
    confirmProtected(session, kind.verb, source.readAhead());
  if (!kind.freesSpace && session.hasTrash())
    question.here = trashingHere(session);
  if (!options.mayTakeProtected)
    question.here = firstOf(refusalOfProtected, question.here);
  RemovalSum planned;
  if (kind.asks && session.canAsk(options.yes))
    planned =
        confirmRemoval(session, kind.verb, source.readAhead(), keep, options.mayTakeProtected);
  auto start = session.now();
  PathAsker<Reply> asker(session, source, question);
  int asked = asker.run(); // the plans that it asks for may change the status
  status = worse(asked, status);
  std::string line =
      summary(kind, planned, asker.done(), asker.told(), durationInWords(session.now() - start));
  if (session.isWatched() && !session.isStopped() && !line.empty())
    session.say(line);
  return status;
}

template <typename Reply>
using Operation = Request<Reply> (Client::*)(const std::string &path, const RequestOptions &);

// The agent counts missing items as removed; a person wants to know of them.
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
  const char *place = session.hasTrash() ? " to the Trash of the agent's user" : " to the Trash";
  Wording wording{kind.done + path + (kind.freesSpace ? "" : place),
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
      if (*options->dryRun)
        return previewRemoval(session, *paths, KeepList(options->keep),
                              {.command = kind.command,
                               .would = kind.would,
                               .freesSpace = kind.freesSpace,
                               .mayTakeProtected = options->mayTakeProtected});
      return removeAll(session, *paths, *options, kind, question);
    };
  };
}

} // namespace

CommandTable removalCommands() {
  RemovalKind remove{.command = "remove",
                     .verb = "Remove",
                     .asks = true,
                     .would = "Would remove ",
                     .freesSpace = true,
                     .done = "Removed ",
                     .participle = "removed"};
  RemovalKind shred{.command = "shred",
                    .verb = "Shred",
                    .asks = true,
                    .would = "Would shred ",
                    .freesSpace = true,
                    .done = "Shredded ",
                    .participle = "shredded"};
  RemovalKind trash{.command = "trash",
                    .verb = "Trash",
                    .asks = false,
                    .would = "Would move to the Trash ",
                    .freesSpace = false,
                    .done = "Moved ",
                    .participle = "moved to the Trash"};
  return {
      {"remove",
       "Remove items with all that they hold, immutable ones too",
       removal(remove, &Client::removeItemAtPathAsync),
       {{"remove --dry-run /srv/old",
         "lists the items that would go, and the space that this frees"},
        {"remove /srv/old", "the folder and all in it"},
        {"remove ~/Downloads --keep '*.pdf' --keep thesis",
         "all but these and the folders that hold them"},
        {"remove -0 <list", "the paths that find -print0 wrote to a file"}}},
      {"shred",
       "Overwrite the contents of items, then remove them",
       removal(shred, &Client::securelyRemoveItemAtPathAsync),
       {{"shred ~/letters", "each file is overwritten once, under all its names"},
        {"shred --dry-run ~/letters", "lists the items that would go"}}},
      {"trash",
       "Move items to your Trash; list, restore or empty it",
       removal(trash, &Client::moveToTrashItemAtPathAsync),
       {{"trash ~/letters", "frees no space until the Trash is emptied"},
        {"trash list", "the items in it"},
        {"trash empty --older-than 30d",
         "removes for good the items trashed a month ago or before"}},
       trashVerbs(),
       "If your rights do not suffice, the agent moves the item to the Trash of its own user, and "
       "the command says so."},
  };
}

} // namespace kw
