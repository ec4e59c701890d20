// The Trash of the user who runs the command, as the desktop's programs keep
// it: a folder in the home and one on each other volume, with a file for each
// item that tells where it stood and when it was thrown away.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kw {

struct TrashedItem {
  std::string path;                      // where it stood
  std::string held;                      // where it is
  std::string description;               // the file that tells of it
  std::optional<std::int64_t> deleted{}; // seconds since 1970
};

struct TrashFolder {
  std::string path;
  std::string top; // from where relative paths in its descriptions count
};

// What a description says; of the item its path, absolute, and the time alone.
// Nothing for a text that names no path.
std::optional<TrashedItem> itemFromDescription(std::string_view text, const std::string &top);

// Those of the folders that are there and belong to this user: one that somebody
// else made could lead anywhere.
std::vector<TrashFolder> ownFolders(const std::vector<TrashFolder> &folders);

// All that this user has.
std::vector<TrashFolder> trashFolders();

// What the folders hold, the oldest first. What no description tells of, and
// descriptions of what is gone, are left out.
std::vector<TrashedItem> trashedItems(const std::vector<TrashFolder> &folders);

} // namespace kw
