// Commands on the user's own Trash. They use the rights of the user, and the
// agent's where these do not suffice.
#include "CommandLine/TrashCommands.h"

#include "CommandLine/MeasuredTree.h"
#include "CommandLine/Outcome.h"
#include "CommandLine/Quantities.h"
#include "Foundation/Trees/FileManager.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fmt/format.h>
#include <iomanip>
#include <memory>
#include <sstream>

namespace kw {
namespace {

NS::FileManager &files() {
  return NS::FileManager::defaultManager();
}

// In local time, as other programs show it.
std::string momentInWords(std::optional<std::int64_t> seconds) {
  if (!seconds)
    return "unknown";
  std::time_t time = *seconds;
  std::ostringstream stream;
  if (const std::tm *local = std::localtime(&time)) // no other thread asks
    stream << std::put_time(local, "%Y-%m-%d %H:%M:%S");
  return stream.str();
}

std::uint64_t bytesOf(Session &session, const TrashedItem &item) {
  TreeMeasurer measurer({.depth = 0}, measuringByAgent(session), showingAdvance(session));
  auto tree = measurer.measure(item.held);
  return tree ? tree->root.bytes : 0;
}

// Whether the cause is that this user may not do it.
bool isDenied(const NS::Error &error) {
  const NS::Error *cause = &error;
  while (const NS::Error *deeper = cause->underlyingError())
    cause = deeper;
  return cause->domain() == NS::POSIXErrorDomain &&
         (cause->code() == EACCES || cause->code() == EPERM);
}

// With the user's rights, else with those of the agent.
template <typename Reply>
Told done(Session &session, const std::function<bool(NS::ErrorSlot error)> &here,
          const std::function<Request<Reply>()> &ask) {
  std::optional<NS::Error> error;
  if (here(&error))
    return true;
  return error && isDenied(*error) ? Told(session.await(ask())) : Told(false, error);
}

// That of a command that a signal has stopped is another.
int statusOf(const Session &session, int status) {
  return session.isStopped() ? ExitStopped : status;
}

void forget(const TrashedItem &item) {
  std::error_code ignored;
  std::filesystem::remove(item.description, ignored);
}

// --- list

int listTrash(Session &session) {
  std::uint64_t sum = 0;
  std::vector<TrashedItem> items = session.trashedItems();
  for (const TrashedItem &item : items) {
    std::uint64_t bytes = bytesOf(session, item);
    if (session.isStopped())
      return tellStoppedEarly(session, JSONObject().add("command", "trash list"));
    sum += bytes;
    session.say(fmt::format("{:19}  {:>10}", momentInWords(item.deleted), sizeInWords(bytes)),
                item.path);
    JSONObject object = pathRequest("trash list", item.path);
    object.add("success", true).add("bytes", bytes).addName("held", item.held);
    session.sayJSON(item.deleted ? object.add("deleted", *item.deleted) : object);
  }
  if (session.isWatched())
    session.say(fmt::format("{} in the Trash, {}", itemsInWords(items.size()), sizeInWords(sum)));
  return ExitDone;
}

CommandRun declareList(Arguments & /*arguments*/) {
  return listTrash;
}

// --- restore

int restore(Session &session, const TrashedItem &item, JSONObject request) {
  return reportingFailures(session, request, [&] {
    Told told = done<FlagReply>(
        session,
        [&](NS::ErrorSlot error) {
          std::string folder = std::filesystem::path(item.path).parent_path().string();
          return files().createDirectoryAtPath(folder, true, error) &&
                 files().moveItemAtPath(item.held, item.path, error);
        },
        [&] {
          return session.agent().moveItemAtPathAsync(item.held, item.path,
                                                     session.requestOptions());
        });
    if (told.isDone)
      forget(item);
    return tellOutcome(session, request, told,
                       {"Restored " + item.path, item.path + " could not be restored", item.held});
  });
}

int restorePath(Session &session, const std::string &path, bool dryRun) {
  JSONObject request = pathRequest("trash restore", path);
  std::vector<TrashedItem> items = session.trashedItems();
  auto found = std::find_if(items.rbegin(), items.rend(),
                            [&](const TrashedItem &item) { return item.path == path; });
  std::string obstacle;
  if (found == items.rend())
    obstacle = "it is not in the Trash";
  else if (presenceOf(path) == Presence::There)
    obstacle = "there is already an item";
  if (!obstacle.empty())
    return tellOutcome(session, request, false,
                       {"", path + " could not be restored", path, [&] { return obstacle; }});
  if (!dryRun)
    return restore(session, *found, request);
  session.say(fmt::format("Would restore {}, {}", path, sizeInWords(bytesOf(session, *found))));
  session.sayJSON(request.add("dryRun", true).add("success", true));
  return ExitDone;
}

CommandRun declareRestore(Arguments &arguments) {
  auto dryRun = declareDryRun(arguments);
  auto paths = std::make_shared<std::vector<std::string>>();
  arguments.operand("paths", *paths, "PATH", "The former path of the item").required = true;
  return [dryRun, paths](Session &session) {
    int status = ExitDone;
    for (const std::string &path : *paths) {
      if (session.isStopped())
        break;
      status = worse(status, restorePath(session, absolutePath(path), *dryRun));
    }
    return statusOf(session, status);
  };
}

// --- empty

struct EmptyOptions {
  std::shared_ptr<bool> dryRun;
  std::shared_ptr<bool> yes;
  std::string age; // as it was given
  std::optional<std::int64_t> deletedUntil = std::nullopt;
};

int removeForGood(Session &session, const TrashedItem &item) {
  JSONObject request = pathRequest("trash empty", item.path);
  return reportingFailures(session, request, [&] {
    Told told = done<RemovalReply>(
        session, [&](NS::ErrorSlot error) { return files().removeItemAtPath(item.held, error); },
        [&] { return session.agent().removeItemAtPathAsync(item.held, session.requestOptions()); });
    if (told.isDone)
      forget(item);
    return tellOutcome(session, request, told,
                       {"Removed " + item.path + " from the Trash",
                        item.path + " could not be removed from the Trash", item.held});
  });
}

int previewEmptying(Session &session, const std::vector<TrashedItem> &items, std::uint64_t bytes) {
  for (const TrashedItem &item : items) {
    session.say("Would remove " + item.path + " from the Trash");
    session.sayJSON(pathRequest("trash empty", item.path).add("dryRun", true).add("success", true));
  }
  session.say(fmt::format("{} in the Trash, {} would be freed", itemsInWords(items.size()),
                          sizeInWords(bytes)));
  return ExitDone;
}

int emptyTrash(Session &session, const EmptyOptions &options) {
  std::vector<TrashedItem> items = session.trashedItems();
  if (options.deletedUntil)
    std::erase_if(items, [&](const TrashedItem &item) {
      return !item.deleted || *item.deleted > *options.deletedUntil;
    });
  std::uint64_t bytes = 0;
  for (const TrashedItem &item : items)
    bytes += bytesOf(session, item);
  if (session.isStopped())
    return tellStoppedEarly(session, JSONObject().add("command", "trash empty"));
  if (*options.dryRun)
    return previewEmptying(session, items, bytes);
  if (!items.empty())
    session.confirm(fmt::format("Remove {} from the Trash for good, {}?",
                                itemsInWords(items.size()), sizeInWords(bytes)),
                    *options.yes);
  auto start = session.now();
  int status = ExitDone;
  for (const TrashedItem &item : items) {
    if (session.isStopped())
      break;
    status = worse(status, removeForGood(session, item));
  }
  status = statusOf(session, status);
  if (session.isWatched() && status == ExitDone)
    session.say(fmt::format("{} in the Trash, {} freed, {}", itemsInWords(items.size()),
                            sizeInWords(bytes), durationInWords(session.now() - start)));
  return status;
}

CommandRun declareEmpty(Arguments &arguments) {
  auto options = std::make_shared<EmptyOptions>();
  options->dryRun = declareDryRun(arguments);
  options->yes = declareYes(arguments);
  arguments.option("--older-than", options->age, "AGE",
                   "Only items trashed at least AGE ago, such as 30d, 6w, 3m or 1y",
                   storesMomentBefore(options->deletedUntil));
  return [options](Session &session) { return emptyTrash(session, *options); };
}

} // namespace

Here trashingHere(Session &session) {
  return [&session](const std::string &path) -> Telling {
    if (presenceOf(path) != Presence::There || !session.trash(path))
      return nullptr;
    return [path](Session &teller, const JSONObject &request) {
      return tellOutcome(teller, request, true, {"Moved " + path + " to the Trash", "", path});
    };
  };
}

CommandTable trashVerbs() {
  return {
      {"list",
       "List the items of your Trash, with the time they were trashed, size and former path",
       declareList,
       {{"trash list", "the oldest first"}, {"--json trash list", "an object for each item"}}},
      {"restore",
       "Put items of your Trash back in their former places",
       declareRestore,
       {{"trash restore ~/letters", "the newest, if it was trashed more than once"}}},
      {"empty",
       "Remove the items of your Trash for good",
       declareEmpty,
       {{"trash empty --older-than 30d", "items trashed a month ago or before"},
        {"trash empty --dry-run", "shows which items would go"}}},
  };
}

} // namespace kw
