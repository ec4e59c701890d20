// The command that finds items to remove: by name under one folder or in all the
// places of applications, by size, by age, and empty folders.
#include "CommandLine/FindCommand.h"

#include "Additions/NSFileManager+Enumeration.h"
#include "CommandLine/Leftovers.h"
#include "CommandLine/MeasuredTree.h"
#include "CommandLine/Outcome.h"
#include "CommandLine/Quantities.h"
#include "CommandLine/TreeSearch.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <unordered_set>

namespace kw {
namespace {

struct FindArguments {
  std::string name{};
  std::string under{};
  std::vector<std::string> excluded{};
  std::string largest{}, age{}; // as they were given
  TreeQuery query{};
  bool byWords = false;
  bool shallow = false;
  bool raw = false;
  bool all = false;
  bool emptyFolders = false;
  bool withNul = false;

  bool wantsTree() const { return emptyFolders || !largest.empty() || !age.empty(); }
};

NS::FileManager &files() {
  return NS::FileManager::defaultManager();
}

// Removes slashes and dots at the end, which every result would have inside.
std::string withoutDots(std::string path) {
  while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/.")))
    path.pop_back();
  return path;
}

NameQuery queryOf(const FindArguments &arguments) {
  NameQuery query{arguments.name, arguments.byWords, !arguments.shallow, nullptr, arguments.all};
  // None at all lets the search read ahead.
  if (!arguments.excluded.empty())
    query.isExcluded = [&arguments](const std::string &name) {
      return std::find(arguments.excluded.begin(), arguments.excluded.end(), name) !=
             arguments.excluded.end();
    };
  return query;
}

// A link to a folder leads into it: a link itself has no contents to search. A
// slash at the end of a path follows the link.
std::string intoLink(std::string path) {
  std::error_code failure;
  if (std::filesystem::is_symlink(path, failure) && std::filesystem::is_directory(path, failure))
    path += '/';
  return path;
}

// Matches reach the reader as they are found. The search names a folder twice,
// before and after its contents.
std::vector<std::string> printMatches(Session &session, const FindArguments &arguments,
                                      const std::string &root) {
  std::unordered_set<std::string> seen;
  std::vector<std::string> found;
  searchByName(files(), queryOf(arguments), root, [&](const std::string &path) {
    if (!arguments.raw && !seen.insert(path).second)
      return;
    if (session.json())
      found.push_back(path);
    session.say(path);
    session.flush();
  });
  return found;
}

int findByName(Session &session, const FindArguments &arguments, const std::string &root) {
  JSONObject request;
  request.add("command", "find").addName("name", arguments.name).addName("path", root);
  std::optional<NS::Error> error;
  if (!files().attributesOfItemAtPath(root, &error))
    return tellFailure(session, request, root, *error);
  std::vector<std::string> found = printMatches(session, arguments, root);
  session.sayJSON(request.add("success", true).addNames("paths", found));
  return ExitDone;
}

// Prints each item with its size, or paths alone when they end with a NUL.
int tellFound(Session &session, const FindArguments &arguments, JSONObject request,
              const std::vector<LargeItem> &found) {
  std::uint64_t sum = 0;
  std::vector<JSONObject> objects;
  for (const LargeItem &item : found) {
    sum += item.bytes;
    objects.push_back(JSONObject().addName("path", item.path).add("bytes", item.bytes));
    if (arguments.withNul)
      session.say(item.path);
    else
      session.say(sizeInWords(item.bytes), item.path);
  }
  if (session.isWatched() && found.size() > 1 && !arguments.withNul)
    session.say(sizeInWords(sum), fmt::format("in {} items", found.size()));
  session.sayJSON(request.add("success", true).add("found", objects));
  return ExitDone;
}

int findLeftovers(Session &session, const FindArguments &arguments) {
  JSONObject request;
  request.add("command", "find").addName("name", arguments.name);
  TreeMeasurer measurer({.depth = 0}, measuringByAgent(session), showingAdvance(session));
  std::vector<LargeItem> found;
  for (const std::string &path : leftoversOf(arguments.name, arguments.byWords, arguments.all)) {
    auto tree = measurer.measure(path);
    if (session.isStopped())
      return tellStoppedEarly(session, request);
    if (tree)
      found.push_back({tree->root.bytes, path});
  }
  return tellFound(session, arguments, request, found);
}

int findInTree(Session &session, const FindArguments &arguments, const std::string &root) {
  JSONObject request = JSONObject().add("command", "find").addName("path", root);
  std::optional<NS::Error> error;
  if (!files().attributesOfItemAtPath(root, &error))
    return tellFailure(session, request, root, *error);
  TreeQuery query = arguments.query;
  query.excluded = arguments.excluded;
  Watch watch = showingAdvance(session);
  TreeFindings found =
      arguments.emptyFolders ? emptyFoldersIn(root, query, watch) : filesIn(root, query, watch);
  if (session.isStopped())
    return tellStoppedEarly(session, request);
  // A part could be taken for the whole.
  if (found.failure != 0)
    return tellFailure(session, request, root, NS::errorFromErrno(found.failure));
  return tellFound(session, arguments, request, found.items);
}

// The search itself would answer nothing there, which might be mistaken for
// a result.
std::string refuseRoot(const std::string &path) {
  if (path.empty())
    return refuseEmpty(path);
  return withoutDots(absolutePath(path)) == "/"
             ? "the search does not start at the root of the file system"
             : "";
}

// Throws UsageError for arguments that do not go together.
void settle(const FindArguments &arguments) {
  bool isByName = !arguments.name.empty();
  if (isByName == arguments.wantsTree())
    throw UsageError(isByName ? "NAME cannot be combined with --largest, --older-than or --empty"
                              : "NAME is required, or one of --largest, --older-than, --empty");
  if (arguments.emptyFolders && (!arguments.largest.empty() || !arguments.age.empty()))
    throw UsageError("--empty cannot be combined with --largest or --older-than");
  bool isUnder = !arguments.under.empty();
  if (!isUnder && (arguments.shallow || arguments.raw || !arguments.excluded.empty()) && isByName)
    throw UsageError("--shallow, --raw and --exclude need --under");
}

int find(Session &session, const FindArguments &arguments) {
  settle(arguments);
  if (arguments.withNul)
    session.endLinesWithNul();
  if (!arguments.wantsTree() && arguments.under.empty())
    return findLeftovers(session, arguments);
  std::string under = absolutePath(arguments.under.empty() ? "." : arguments.under);
  std::string root = intoLink(withoutDots(under));
  return arguments.wantsTree() ? findInTree(session, arguments, root)
                               : findByName(session, arguments, root);
}

CommandRun declareFind(Arguments &arguments) {
  auto given = std::make_shared<FindArguments>();
  arguments.operand("name", given->name, "NAME", "The application's name, in any case").required =
      false;
  arguments.option("--under", given->under, "PATH",
                   "The folder to search; by default a NAME is searched for in the usual places of "
                   "applications, all else in the current folder",
                   refuseRoot);
  arguments.option("--largest", given->largest, "NUMBER", "Find the NUMBER largest files",
                   storesNumber<std::size_t>(given->query.most, 1));
  arguments.option("--older-than", given->age, "AGE",
                   "Find files that have not been changed for AGE, such as 90d, 6w, 3m or 1y",
                   storesMomentBefore(given->query.unchangedSince));
  arguments.flag("--empty", given->emptyFolders,
                 "Find folders that are empty or hold only empty folders");
  arguments.flag("--words", given->byWords, "Match the words of the name, in any order");
  arguments.flag("--shallow", given->shallow,
                 "Search the folder itself, but not the folders in it");
  arguments.option("--exclude", given->excluded, "NAME",
                   "Leave out items of this name, and do not enter them; without a NAME to find, a "
                   "pattern as for remove --keep",
                   refuseEmpty);
  arguments.flag("--all", given->all,
                 "Print numbered copies and items with the folder's own name too");
  arguments.flag("--raw", given->raw,
                 "Print each match as the search reports it: folders come twice");
  arguments.flag("-0,--null", given->withNul, "End each path with a NUL, for xargs -0");
  return [given](Session &session) { return find(session, *given); };
}

} // namespace

Command findCommand() {
  return {"find",
          "Find leftovers of an application, large or old files, and empty folders",
          declareFind,
          {{"find Editor", "its leftovers in your home and in the system, with sizes"},
           {"find Editor --under ~/.config", "paths with the name in them, in any case"},
           {"find \"Photo Editor\" --under /var --words", "the words in any order"},
           {"find --largest 20 --under ~", "the twenty largest files"},
           {"find --older-than 1y --under ~/Downloads", "with sizes, the largest first"},
           {"find --empty --under ~ -0 | keepwell remove -0 -n", "a trial of their removal"}},
          {},
          "The search by name passes over numbered copies, such as \"Editor 2\" and "
          "\"editor10.conf\" for Editor, and over items with the name of the folder itself; --all "
          "prints them too. The searches for large files, old files and empty folders stay on the "
          "volume of the folder."};
}

} // namespace kw
