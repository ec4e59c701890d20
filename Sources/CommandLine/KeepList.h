// The items that must not be removed, as patterns of the user.
//
//   *   any letters but a slash      ?   one of them
//   **  any letters, slashes too     [a-z] [!a-z]  one of a set, or one outside
//   \   takes the next letter literally
//
// A pattern without a slash is for names, at any depth beneath the removed item
// and for that item itself. One with a slash is for whole paths; a relative one
// is taken from the current folder. The items in a kept folder are kept.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kw {

// Tells whether the pattern is for the whole text.
bool matchesPattern(std::string_view pattern, std::string_view text);

// Immutable.
class KeepList {
public:
  explicit KeepList(const std::vector<std::string> &patterns);

  bool isEmpty() const { return names_.empty() && paths_.empty(); }
  // Whether a pattern is for this item itself. The path is absolute, without
  // slashes at its end.
  bool names(std::string_view path) const;
  // Tells whether the item is in a folder whose path a pattern is for.
  bool holdsFolderOf(std::string_view path) const;

private:
  bool namesPath(std::string_view path) const;

  std::vector<std::string> names_;
  std::vector<std::string> paths_; // absolute
};

} // namespace kw
