// By the canonical path, and by being the same folder as the user's home.
#include "CommandLine/ProtectedPaths.h"

#include "Foundation/Desktop/HomeDirectory.h"

#include <algorithm>
#include <array>
#include <filesystem>

namespace kw {
namespace {

namespace fs = std::filesystem;

// All folders right in these are protected.
constexpr std::array<const char *, 6> protectedBelow{"/",     "/usr",   "/var",
                                                     "/home", "/Users", "/System"};

// These themselves.
constexpr std::array<const char *, 4> protectedItself{"/usr/local/bin", "/usr/local/lib",
                                                      "/var/lib/dpkg", "/var/lib/rpm"};

// Empty for an item other than a folder. A link at the end is an item of its
// own, unless a slash or a dot after it leads into the folder.
fs::path canonicalFolder(const std::string &path) {
  std::error_code failure;
  fs::path whole(path);
  if (fs::is_symlink(fs::symlink_status(whole, failure)) || !fs::is_directory(whole, failure))
    return {};
  fs::path canonical = fs::canonical(whole, failure);
  return failure ? fs::path() : canonical;
}

bool isHome(const fs::path &folder) {
  std::error_code ignored;
  fs::path home = fs::weakly_canonical(NS::homeDirectory(), ignored);
  // A folder that holds the home, too.
  for (fs::path above = home; !above.empty(); above = above.parent_path()) {
    if (above == folder)
      return true;
    if (above == above.root_path())
      break;
  }
  return false;
}

bool isProtected(const fs::path &folder) {
  if (folder == folder.root_path() || isHome(folder))
    return true;
  auto is = [&](const char *other) { return folder == other; };
  auto isAbove = [&](const char *other) { return folder.parent_path() == other; };
  return std::any_of(protectedBelow.begin(), protectedBelow.end(), isAbove) ||
         std::any_of(protectedItself.begin(), protectedItself.end(), is);
}

} // namespace

std::optional<std::string> protectionOf(const std::string &path) {
  fs::path folder = canonicalFolder(path);
  if (folder.empty() || !isProtected(folder))
    return std::nullopt;
  return path + " is protected; see --force-protected";
}

} // namespace kw
