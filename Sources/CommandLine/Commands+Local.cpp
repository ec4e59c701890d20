// Commands that look at this host's files themselves and need no agent.
#include "CommandLine/Command.h"

#include "Additions/NSFileManager+Additions.h"
#include "Additions/NSFileManager+AliasExt.h"
#include "Additions/NSFileManager+Enumeration.h"
#include "Additions/NSFileManager+FileAttributes.h"
#include "Foundation/FileFlags.h"
#include "Foundation/Log.h"

#include <algorithm>
#include <array>
#include <memory>
#include <unordered_set>

namespace kw {
namespace {

NS::FileManager &files() {
  return NS::FileManager::defaultManager();
}

int fail(Session &session, JSONObject request, const std::string &path, const NS::Error &error) {
  session.sayFailure(request.add("success", false).add("error", jsonOfError(error)));
  // The system's own words say more than the number of the layer above.
  const NS::Error &cause = error.underlyingError() ? *error.underlyingError() : error;
  session.complain(displayable(path) + ": " + displayable(cause.localizedDescription()));
  return ExitRefused;
}

// --- find

struct FindArguments {
  std::string name;
  std::string under;
  std::vector<std::string> excluded;
  bool byWords = false;
  bool shallow = false;
  bool raw = false;
};

// The search names a folder twice, before and after what it holds.
std::vector<std::string> unique(const std::vector<std::string> &paths) {
  std::unordered_set<std::string> seen;
  std::vector<std::string> kept;
  std::copy_if(paths.begin(), paths.end(), std::back_inserter(kept),
               [&](const std::string &path) { return seen.insert(path).second; });
  return kept;
}

// Slashes and dots at the end would stand in the middle of every result.
std::string withoutDots(std::string path) {
  while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/.")))
    path.pop_back();
  return path;
}

int find(Session &session, const FindArguments &arguments) {
  std::string root = withoutDots(absolutePath(arguments.under));
  JSONObject request;
  request.add("command", "find").add("name", arguments.name).add("path", root);
  std::optional<NS::Error> error;
  if (!files().attributesOfItemAtPath(root, &error))
    return fail(session, request, root, *error);
  // None at all lets the search read ahead.
  NameExclusion isExcluded;
  if (!arguments.excluded.empty())
    isExcluded = [&](const std::string &name) {
      return std::find(arguments.excluded.begin(), arguments.excluded.end(), name) !=
             arguments.excluded.end();
    };
  std::vector<std::string> found =
      findFile(files(), arguments.name, root, arguments.byWords, !arguments.shallow, isExcluded);
  if (!arguments.raw)
    found = unique(found);
  for (const std::string &path : found)
    session.say(displayable(path));
  session.sayJSON(request.add("success", true).add("paths", found));
  return ExitDone;
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

CommandRun declareFind(Arguments &arguments) {
  auto given = std::make_shared<FindArguments>();
  arguments.operand("name", given->name, "NAME", "The application's name, in whatever case");
  arguments.option("--under", given->under, "PATH", "The folder to search", refuseRoot).required =
      true;
  arguments.flag("--words", given->byWords, "Match the words of the name, in any order");
  arguments.flag("--shallow", given->shallow, "Look at the folder's own children only");
  arguments.option("--exclude", given->excluded, "NAME", "Pass over items of this name, unentered");
  arguments.flag("--raw", given->raw, "Print each match of the walk: folders come twice");
  return [given](Session &session) { return find(session, *given); };
}

// --- inspect

std::string nameOfType(NS::FileType type) {
  switch (type) {
  case NS::FileType::Regular:
    return "file";
  case NS::FileType::Directory:
    return "folder";
  case NS::FileType::SymbolicLink:
    return "link";
  case NS::FileType::Socket:
    return "socket";
  case NS::FileType::CharacterSpecial:
    return "character device";
  case NS::FileType::BlockSpecial:
    return "block device";
  case NS::FileType::Unknown:
    break;
  }
  return "other";
}

std::string nameOfFolderType(KWFolderType type) {
  static constexpr std::array names{
      "ordinary",     "package",    "application",    "photo library", "migrated photo library",
      "PBLb library", "ap library", "iTunes library", "photos library"};
  return type < names.size() ? names[type] : "ordinary";
}

std::vector<std::string> namesOfFlags(std::uint32_t flags) {
  static constexpr std::array<std::pair<std::uint32_t, const char *>, 6> known{{
      {NS::UF_IMMUTABLE_FLAG, "user immutable"},
      {NS::UF_APPEND_FLAG, "user append-only"},
      {NS::UF_HIDDEN_FLAG, "hidden"},
      {NS::SF_IMMUTABLE_FLAG, "system immutable"},
      {NS::SF_APPEND_FLAG, "system append-only"},
      {NS::SF_RESTRICTED_FLAG, "restricted"},
  }};
  std::vector<std::string> names;
  for (auto [flag, name] : known)
    if (flags & flag)
      names.emplace_back(name);
  return names;
}

struct Inspection {
  std::string type;
  std::string folderType; // empty for what is no folder
  std::vector<std::string> flags;
  bool restricted = false;
  bool rootless = false;
  bool hidden = false;
  bool readable = false; // from the top down
  std::int64_t created = 0;
  std::int64_t modified = 0;
  std::int64_t lastUsed = 0;
  std::string original;
};

Inspection inspection(const std::string &path, const NS::FileAttributes &attributes) {
  Inspection result;
  result.type = nameOfType(attributes.type);
  if (isFileDirectoryAtPath(files(), path))
    result.folderType = nameOfFolderType(folderTypeAtPath(files(), path));
  NS::FileStatus status;
  if (NS::FileFlags::shared().status(path, status) == 0)
    result.flags = namesOfFlags(status.flags);
  result.restricted = isFileRestricted(files(), path);
  result.rootless = isFileProtectedByRootless(files(), path);
  result.hidden = isFileHidden(files(), path);
  result.readable = !isFileRestrictedForReadingRecursivelyUp(files(), path);
  result.created = statCreationTimeAtPath(files(), path);
  result.modified = statModificationTimeAtPath(files(), path);
  result.lastUsed = statAccessTimeAtPath(files(), path);
  result.original = resolvedOriginalPath(files(), path);
  return result;
}

std::string listed(const std::vector<std::string> &words) {
  std::string text;
  for (const std::string &word : words)
    text += (text.empty() ? "" : ", ") + word;
  return text.empty() ? "none" : text;
}

std::string protectionOf(const Inspection &item) {
  std::vector<std::string> kinds;
  if (item.restricted)
    kinds.emplace_back("restricted");
  if (item.rootless)
    kinds.emplace_back("rootless");
  return listed(kinds);
}

// Many volumes keep no times of creation.
std::string moment(std::int64_t seconds) {
  if (seconds == 0)
    return "unknown";
  return NS::Date::dateWithTimeIntervalSince1970(static_cast<double>(seconds))->description();
}

void sayInspection(Session &session, const std::string &path, const Inspection &item) {
  session.say(displayable(path));
  session.say("  kind:       " + item.type +
              (item.folderType.empty() ? "" : " (" + item.folderType + ")"));
  session.say("  flags:      " + listed(item.flags));
  session.say("  protection: " + protectionOf(item));
  session.say(std::string("  hidden:     ") + (item.hidden ? "yes" : "no"));
  session.say(std::string("  readable:   ") +
              (item.readable ? "yes" : "no, or a folder above is not"));
  session.say("  created:    " + moment(item.created));
  session.say("  modified:   " + moment(item.modified));
  session.say("  last used:  " + moment(item.lastUsed));
  if (item.original != path)
    session.say("  stands for: " + displayable(item.original));
}

JSONObject jsonOfInspection(JSONObject request, const Inspection &item) {
  request.add("success", true).add("kind", item.type);
  if (!item.folderType.empty())
    request.add("folderType", item.folderType);
  return request.add("flags", item.flags)
      .add("restricted", item.restricted)
      .add("rootless", item.rootless)
      .add("hidden", item.hidden)
      .add("readable", item.readable)
      .add("created", item.created)
      .add("modified", item.modified)
      .add("lastUsed", item.lastUsed)
      .add("original", item.original);
}

int inspect(Session &session, const std::string &path) {
  JSONObject request;
  request.add("command", "inspect").add("path", path);
  std::optional<NS::Error> error;
  auto attributes = files().attributesOfItemAtPath(path, &error);
  if (!attributes)
    return fail(session, request, path, *error);
  Inspection item = inspection(path, *attributes);
  sayInspection(session, path, item);
  session.sayJSON(jsonOfInspection(request, item));
  return ExitDone;
}

CommandRun declareInspect(Arguments &arguments) {
  auto paths = std::make_shared<std::vector<std::string>>();
  arguments.operands("paths", *paths, "PATH", "Files or folders").required = true;
  return [paths](Session &session) {
    // What the steps log on their way stands in the answer.
    NS::ScopedLogSink quiet([](const std::string &) {});
    int status = ExitDone;
    for (const std::string &path : *paths)
      status = worse(status, inspect(session, absolutePath(path)));
    return status;
  };
}

} // namespace

CommandTable localCommands() {
  return {
      {"find",
       "Search a folder for what an application left behind",
       declareFind,
       {{"find Editor --under ~/.config", "what has the name in it, in whatever case"},
        {"find \"Photo Editor\" --under /var --words", "the words in any order"},
        {"find Editor --under ~ --exclude .git --json", "for a program, passing over .git"}}},
      {"inspect",
       "Tell what items are: kind, flags, protection, times, original",
       declareInspect,
       {{"inspect /etc/hosts", "says among others whether it is locked"},
        {"inspect --json /srv/*", "an object for each item"}}},
  };
}

} // namespace kw
