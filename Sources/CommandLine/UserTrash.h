// The user's Trash, as the desktop's programs keep it: a folder in the home and
// one on each other volume, with a file for each item that has its former place
// and the time of its removal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kw {

struct TrashedItem {
  std::string path;                      // its former place
  std::string held;                      // where it is
  std::string description;               // the file that describes it
  std::optional<std::int64_t> deleted{}; // seconds since 1970
};

struct TrashFolder {
  std::string path;
  std::string top; // from where relative paths in its descriptions count
};

// The content of a description: only the item's absolute path and the time.
// Empty for a text without a path.
std::optional<TrashedItem> itemFromDescription(std::string_view text, const std::string &top);

// The existing folders that belong to this user: a folder of another user could
// lead anywhere.
std::vector<TrashFolder> ownFolders(const std::vector<TrashFolder> &folders);

// Decodes escapes such as "\040", which the list of mounts has for spaces.
std::string withoutEscapes(std::string_view text);

// The folders of the Trash that this user has, in the home and on volumes.
std::vector<TrashFolder> trashFolders();

// The items in the folders, the oldest first. Leaves out items without a
// description, and descriptions without an item.
std::vector<TrashedItem> trashedItems(const std::vector<TrashFolder> &folders);

} // namespace kw
