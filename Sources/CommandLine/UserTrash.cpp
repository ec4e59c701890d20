// The folders of the Trash, their descriptions and the items that these name.
#include "CommandLine/UserTrash.h"

#include "CommandLine/Look.h"
#include "Foundation/Desktop/HomeDirectory.h"
#include "Foundation/Desktop/StandardFolders.h"
#include "Foundation/Processes/ProcessInfo.h"
#include "Foundation/Trees/FileManager.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <fmt/format.h>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace kw {
namespace {

constexpr std::string_view suffix = ".trashinfo";

int valueOfDigit(char digit) {
  if (digit >= '0' && digit <= '9')
    return digit - '0';
  auto lower = static_cast<char>(std::tolower(static_cast<unsigned char>(digit)));
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Decodes "%XX" in a text to bytes of any value.
std::string decoded(std::string_view text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); ++at) {
    int high = text[at] == '%' && at + 2 < text.size() ? valueOfDigit(text[at + 1]) : -1;
    int low = high >= 0 ? valueOfDigit(text[at + 2]) : -1;
    if (low < 0) {
      bytes += text[at];
      continue;
    }
    bytes += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return bytes;
}

// Reads a local time such as 2026-11-21T23:40:11.
std::optional<std::int64_t> secondsOf(std::string_view text) {
  std::tm time{};
  std::istringstream stream{std::string(text)};
  stream >> std::get_time(&time, "%Y-%m-%dT%H:%M:%S");
  if (stream.fail())
    return std::nullopt;
  time.tm_isdst = -1; // as it was then
  std::time_t seconds = std::mktime(&time);
  return seconds == -1 ? std::nullopt : std::optional<std::int64_t>(seconds);
}

// The value of a line "key=value" in the one group of the file.
std::optional<std::string_view> valueOf(std::string_view text, std::string_view key) {
  bool isInGroup = false;
  while (!text.empty()) {
    std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.starts_with('['))
      isInGroup = line == "[Trash Info]";
    else if (isInGroup && line.starts_with(key) && line.substr(key.size()).starts_with('='))
      return line.substr(key.size() + 1);
  }
  return std::nullopt;
}

bool isOwnFolder(const std::string &path) {
  auto attributes = NS::FileManager::defaultManager().attributesOfItemAtPath(path, nullptr);
  return attributes && attributes->type == NS::FileType::Directory &&
         attributes->ownerAccountID == NS::realUserIdentifier();
}

// A folder shared by all users, in which each may make one: its sticky bit
// keeps them from exchanging those of others.
bool isSharedParent(const std::string &path) {
  constexpr std::uint32_t sticky = 01000;
  auto attributes = NS::FileManager::defaultManager().attributesOfItemAtPath(path, nullptr);
  return attributes && attributes->type == NS::FileType::Directory &&
         (attributes->posixPermissions & sticky) != 0;
}

// Where volumes are mounted, on hosts that have a list of them.
std::vector<std::string> mountPoints() {
  std::vector<std::string> points;
  std::ifstream mounts("/proc/self/mounts");
  for (std::string device, point, kind, rest; mounts >> device >> point >> kind;) {
    std::getline(mounts, rest);
    if (kind != "autofs") // or looking would mount it
      points.push_back(withoutEscapes(point));
  }
  return points;
}

// On a volume that another person prepared, the two folders could be links to
// any other folder of this user.
void addItems(const TrashFolder &folder, std::vector<TrashedItem> &items) {
  if (!isOwnFolder(folder.path + "/info") || !isOwnFolder(folder.path + "/files"))
    return;
  auto names =
      NS::FileManager::defaultManager().contentsOfDirectoryAtPath(folder.path + "/info", nullptr);
  for (const std::string &name : names.value_or(std::vector<std::string>())) {
    if (!name.ends_with(suffix))
      continue;
    std::string own = name.substr(0, name.size() - suffix.size());
    if (own.empty() || own == "." || own == "..")
      continue;
    std::string description = fmt::format("{}/info/{}", folder.path, name);
    std::ifstream stream(description, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    auto item = itemFromDescription(text, folder.top);
    std::string held = fmt::format("{}/files/{}", folder.path, own);
    if (!item || presenceOf(held) != Presence::There)
      continue;
    item->held = held;
    item->description = description;
    items.push_back(std::move(*item));
  }
}

} // namespace

std::string withoutEscapes(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\' || at + 3 >= text.size()) {
      result += text[at];
      continue;
    }
    int value = (text[at + 1] - '0') * 64 + (text[at + 2] - '0') * 8 + (text[at + 3] - '0');
    result += static_cast<char>(value);
    at += 3;
  }
  return result;
}

std::optional<TrashedItem> itemFromDescription(std::string_view text, const std::string &top) {
  auto path = valueOf(text, "Path");
  if (!path || path->empty())
    return std::nullopt;
  TrashedItem item;
  item.path = decoded(*path);
  if (!item.path.starts_with('/'))
    item.path = fmt::format("{}{}{}", top, top.ends_with('/') ? "" : "/", item.path);
  item.deleted = secondsOf(valueOf(text, "DeletionDate").value_or(""));
  return item;
}

std::vector<TrashFolder> ownFolders(const std::vector<TrashFolder> &folders) {
  std::vector<TrashFolder> own;
  for (const TrashFolder &folder : folders) {
    bool isNew = std::none_of(own.begin(), own.end(),
                              [&](const TrashFolder &other) { return other.path == folder.path; });
    if (isNew && isOwnFolder(folder.path))
      own.push_back(folder);
  }
  return own;
}

std::vector<TrashFolder> trashFolders() {
  std::vector<TrashFolder> folders;
  for (const std::string &data : NS::StandardFolders::shared().searchPathForDirectoriesInDomains(
           NS::SearchPathDirectory::ApplicationSupport, NS::UserDomainMask, true))
    folders.push_back({data + "/Trash", data});
  std::string user = std::to_string(NS::realUserIdentifier());
  for (const std::string &top : mountPoints()) {
    std::string folder = top == "/" ? "" : top;
    if (isSharedParent(folder + "/.Trash"))
      folders.push_back({fmt::format("{}/.Trash/{}", folder, user), top});
    folders.push_back({fmt::format("{}/.Trash-{}", folder, user), top});
  }
  return ownFolders(folders);
}

std::vector<TrashedItem> trashedItems(const std::vector<TrashFolder> &folders) {
  std::vector<TrashedItem> items;
  for (const TrashFolder &folder : folders)
    addItems(folder, items);
  std::stable_sort(items.begin(), items.end(),
                   [](const TrashedItem &left, const TrashedItem &right) {
                     return left.deleted < right.deleted; // no time comes first
                   });
  return items;
}

} // namespace kw
