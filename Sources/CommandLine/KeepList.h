// What must not be removed, as patterns somebody wrote.
//
//   *   any letters but a slash      ?   one of them
//   **  any letters, slashes too     [a-z] [!a-z]  one of a set, or one outside
//   \   takes the next letter as it stands
//
// A pattern without a slash is for names, at any depth beneath what is removed
// and for that itself. One with a slash is for whole paths; a relative one is
// taken from the current folder. What stands in a kept folder is kept.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kw {

bool matchesPattern(std::string_view pattern, std::string_view text);

// Immutable.
class KeepList {
public:
  explicit KeepList(const std::vector<std::string> &patterns);

  bool isEmpty() const { return names_.empty() && paths_.empty(); }
  // Whether a pattern is for this item itself. The path is absolute, without
  // slashes at its end.
  bool names(std::string_view path) const;
  // Whether the item stands in a folder whose path a pattern is for.
  bool holdsFolderOf(std::string_view path) const;

private:
  bool namesPath(std::string_view path) const;

  std::vector<std::string> names_;
  std::vector<std::string> paths_; // absolute
};

} // namespace kw
