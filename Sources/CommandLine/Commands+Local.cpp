// Commands that look at this host's files themselves; some have the agent measure
// folders that the user cannot read.
#include "Additions/NSFileManager+Additions.h"
#include "Additions/NSFileManager+AliasExt.h"
#include "Additions/NSFileManager+FileAttributes.h"
#include "CommandLine/BrowseCommand.h"
#include "CommandLine/FindCommand.h"
#include "CommandLine/Outcome.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Files/FileFlags.h"

#include <array>
#include <memory>

namespace kw {
namespace {

NS::FileManager &files() {
  return NS::FileManager::defaultManager();
}

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
  return names.at(type);
}

std::vector<std::string> namesOfFlags(std::uint32_t flags) {
  static constexpr auto known = std::to_array<std::pair<std::uint32_t, const char *>>({
      {NS::UF_IMMUTABLE_FLAG, "user immutable"},
      {NS::UF_APPEND_FLAG, "user append-only"},
      {NS::UF_HIDDEN_FLAG, "hidden"},
      {NS::SF_IMMUTABLE_FLAG, "system immutable"},
      {NS::SF_APPEND_FLAG, "system append-only"},
      {NS::SF_RESTRICTED_FLAG, "restricted"},
  });
  std::vector<std::string> names;
  for (auto [flag, name] : known)
    if (flags & flag)
      names.emplace_back(name);
  return names;
}

struct Inspection {
  std::string type;
  std::string folderType; // empty for an item other than a folder
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

// A link's text counts from the folder that holds the link.
std::string originalOf(const std::string &path) {
  auto destination = files().destinationOfSymbolicLinkAtPath(path, nullptr);
  if (!destination || destination->starts_with('/'))
    return resolvedOriginalPath(files(), path);
  std::string whole = path.substr(0, path.rfind('/') + 1) + *destination;
  return files().fileExistsAtPath(whole) ? whole : path;
}

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
  result.original = originalOf(path);
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
  session.say(path);
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
    session.say("  original:   " + item.original);
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
      .addName("original", item.original);
}

int inspect(Session &session, const std::string &path) {
  JSONObject request;
  request.add("command", "inspect").addName("path", path);
  std::optional<NS::Error> error;
  auto attributes = files().attributesOfItemAtPath(path, &error);
  if (!attributes)
    return tellFailure(session, request, path, *error);
  Inspection item = inspection(path, *attributes);
  sayInspection(session, path, item);
  session.sayJSON(jsonOfInspection(request, item));
  return ExitDone;
}

CommandRun declareInspect(Arguments &arguments) {
  auto paths = std::make_shared<std::vector<std::string>>();
  auto withNul = std::make_shared<bool>(false);
  arguments.operand("paths", *paths, "PATH", "Files or folders").required = true;
  arguments.flag("-0,--null", *withNul, "End each line with a NUL, for names with line ends");
  return [paths, withNul](Session &session) {
    if (*withNul)
      session.endLinesWithNul();
    // The answer holds the log messages of the steps.
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
      browseCommand(),
      findCommand(),
      {"inspect",
       "Show the kind, flags, protection, times and original of items",
       declareInspect,
       {{"inspect /etc/hosts", "shows, among other things, whether it is locked"},
        {"inspect --json /srv/*", "an object for each item"}}},
  };
}

} // namespace kw
