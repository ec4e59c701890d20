// Commands that remove items: what they keep, what they would do, and what they
// ask first.
#include "CommandLine/Outcome.h"
#include "CommandLine/PathRequests.h"
#include "CommandLine/RemovalPlan.h"
#include "Tools/RVFileSizer.h"

#include <memory>

namespace kw {
namespace {

// What distinguishes one such command from another.
struct RemovalKind {
  const char *command;
  const char *question; // before the items and "?"; null: it can be undone
  const char *would;    // before an item, in a dry run
  bool freesSpace;
  const char *done;   // before an item
  const char *failed; // behind "could not be "
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
  if (kind.question)
    arguments.flag("-y,--yes", options->yes, "Do not ask first");
  return options;
}

std::string words(std::uint64_t bytes) {
  return RVFileSizer::shared().displayItemSizeFromSize(bytes, false, true);
}

std::string amounts(std::uint64_t items, std::uint64_t allocated, std::uint64_t freed) {
  return std::to_string(items) + (items == 1 ? " item, " : " items, ") + words(allocated) +
         " on disk, " + words(freed) + " would be freed";
}

// --- for real

// The items to remove in the place of one; those kept are told.
std::vector<std::string> around(Session &session, const RemovalKind &kind, RemovalPlanner &planner,
                                const std::string &path, int &status) {
  RemovalPlan plan = planner.plan(path);
  for (const std::string &kept : plan.kept) {
    session.sayJSON(pathRequest(kind.command, kept).add("success", true).add("kept", true));
    session.say("Kept " + displayable(kept));
  }
  for (const std::string &unknown : plan.unknown) {
    std::string reason = displayable(unknown) +
                         " cannot be looked into and is left alone, since it may hold what is kept";
    session.sayFailure(pathRequest(kind.command, unknown)
                           .add("success", false)
                           .add("error", jsonOfReason(reason)));
    session.complain(reason);
    status = worse(status, ExitRefused);
  }
  return plan.exists ? plan.roots : std::vector{path};
}

std::string questionAbout(const RemovalKind &kind, const std::vector<std::string> &paths) {
  constexpr std::size_t mostNamed = 5;
  std::string question = kind.question;
  for (std::size_t index = 0; index < paths.size() && index < mostNamed; ++index)
    question += (index > 0 ? ", " : " ") + displayable(paths[index]);
  if (paths.size() > mostNamed)
    question += " and " + std::to_string(paths.size() - mostNamed) + " more";
  return question + " for good?";
}

template <typename Reply>
int removeAll(Session &session, const PathArguments &paths, const RemovalOptions &options,
              const RemovalKind &kind, const PathQuestion<Reply> &question) {
  if (kind.question)
    session.confirm(questionAbout(kind, paths.given), options.yes);
  KeepList keep(options.keep);
  RemovalPlanner planner(keep);
  int status = ExitDone;
  PathSource::Expand expand;
  if (!keep.isEmpty())
    expand = [&](const std::string &path) { return around(session, kind, planner, path, status); };
  int asked = askForEachPath(session, PathSource(paths, session.input(), expand), question);
  return worse(status, asked);
}

// --- as a dry run

struct Total {
  std::size_t paths = 0;
  std::uint64_t items = 0;
  std::uint64_t allocated = 0;
  std::uint64_t freed = 0;
};

int tellPlan(Session &session, const RemovalKind &kind, const std::string &path, RemovalPlan plan,
             Total &total) {
  if (!kind.freesSpace)
    plan.freedBytes = 0;
  ++total.paths;
  total.items += plan.items;
  total.allocated += plan.allocatedBytes;
  total.freed += plan.freedBytes;
  session.sayJSON(pathRequest(kind.command, path)
                      .add("dryRun", true)
                      .add("success", true)
                      .add("remove", plan.roots)
                      .add("kept", plan.kept)
                      .add("unknown", plan.unknown)
                      .add("items", plan.items)
                      .add("allocated", plan.allocatedBytes)
                      .add("freed", plan.freedBytes));
  if (!plan.exists)
    session.say(displayable(path) + " is not there");
  for (const std::string &root : plan.roots)
    session.say(kind.would + displayable(root));
  for (const std::string &kept : plan.kept)
    session.say("Would keep " + displayable(kept));
  for (const std::string &unknown : plan.unknown)
    session.complain(displayable(unknown) + " cannot be looked into; what it holds is not counted");
  return ExitDone;
}

int planAll(Session &session, const PathArguments &paths, const RemovalOptions &options,
            const RemovalKind &kind) {
  KeepList keep(options.keep);
  RemovalPlanner planner(keep);
  Total total;
  int status = tellForEachPath(session, kind.command, PathSource(paths, session.input()),
                               [&](const std::string &path) {
                                 return tellPlan(session, kind, path, planner.plan(path), total);
                               });
  session.say(amounts(total.items, total.allocated, total.freed));
  JSONObject object;
  object.add("items", total.items).add("allocated", total.allocated).add("freed", total.freed);
  session.sayJSON(JSONObject()
                      .add("command", kind.command)
                      .add("dryRun", true)
                      .add("success", true)
                      .add("total", object));
  return status;
}

template <typename Reply>
using Operation = Request<Reply> (Client::*)(const std::string &path, const RequestOptions &);

template <typename Reply>
std::function<CommandRun(Arguments &)> removal(const RemovalKind &kind,
                                               Operation<Reply> operation) {
  PathQuestion<Reply> question;
  question.command = kind.command;
  question.ask = [operation](Client &agent, const std::string &path,
                             const RequestOptions &options) {
    return (agent.*operation)(path, options);
  };
  question.tell = [kind](Session &session, const std::string &path, const JSONObject &request,
                         const Reply &reply) {
    std::string shown = displayable(path);
    return tellOutcome(session, request, reply,
                       {std::string(kind.done) + shown + (kind.freesSpace ? "" : " to the Trash"),
                        shown + " could not be " + kind.failed});
  };
  return [kind, question](Arguments &arguments) -> CommandRun {
    auto options = declareOptions(arguments, kind);
    auto paths = declarePaths(arguments);
    return [=](Session &session) {
      requirePaths(*paths);
      return options->dryRun ? planAll(session, *paths, *options, kind)
                             : removeAll(session, *paths, *options, kind, question);
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
