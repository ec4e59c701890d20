// A file URL: an absolute or relative path in the file system and whether it is
// that of a folder, with the resource values that callers need.
//
// A value type; copies are independent and may cross threads.
#pragma once

#include "Foundation/Base/Error.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace NS {

class URL {
public:
  // Looks at the file system once: a path that ends in a slash, or that is the
  // path of a folder, makes a folder's URL.
  static URL fileURLWithPath(std::string_view path);
  // Does not look at the file system.
  static URL fileURLWithPath(std::string_view path, bool isDirectory);

  // The path without a trailing slash (but "/" for the root).
  const std::string &path() const { return path_; }
  bool hasDirectoryPath() const { return isDirectory_; }
  // "file://" and the path, percent-escaped, with a trailing slash for a folder.
  std::string absoluteString() const;

  // Tells whether an item exists at the path; a dangling link is reachable. On
  // failure the slot gets a reading error.
  bool checkResourceIsReachable(ErrorSlot error) const;

  friend bool operator==(const URL &, const URL &) = default;

private:
  URL(std::string path, bool isDirectory) : path_(std::move(path)), isDirectory_(isDirectory) {}

  std::string path_;
  bool isDirectory_;
};

inline std::string describe(const URL &url) {
  return url.absoluteString();
}

// The icon of an item: names in the icon theme, most specific first.
struct Icon {
  std::vector<std::string> names;
  friend bool operator==(const Icon &, const Icon &) = default;
};

enum class URLResourceKey { IsSymbolicLink, Volume, EffectiveIcon, LocalizedName };
using URLResourceValue = std::variant<bool, std::string, URL, Icon>;

// The platform's name of the key, as it appears in logs
// ("NSURLIsSymbolicLinkKey" and so on).
std::string_view describe(URLResourceKey key);

// Reads one resource value: a bool for IsSymbolicLink (of the item itself), the
// URL of the mount point that holds the item for Volume, an Icon for
// EffectiveIcon and a string for LocalizedName. On failure returns an empty
// optional, with a reading error in the slot.
std::optional<URLResourceValue> getResourceValue(const URL &url, URLResourceKey key,
                                                 ErrorSlot error);

} // namespace NS
