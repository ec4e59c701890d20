// Compares canonical paths, and the identities of folders: a volume that is
// mounted at a second place has the same folders there.
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

// These folders are protected, but not the folders right in them.
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

bool isSame(const fs::path &folder, const fs::path &other) {
  std::error_code ignored;
  return folder == other || fs::equivalent(folder, other, ignored);
}

bool isHome(const fs::path &folder) {
  std::error_code ignored;
  fs::path home = fs::weakly_canonical(NS::homeDirectory(), ignored);
  // A folder that holds the home, too.
  for (fs::path above = home; !above.empty(); above = above.parent_path()) {
    if (isSame(folder, above))
      return true;
    if (above == above.root_path())
      break;
  }
  return false;
}

bool isProtected(const fs::path &folder) {
  if (isSame(folder, folder.root_path()) || isHome(folder))
    return true;
  auto is = [&](const char *other) { return isSame(folder, other); };
  // Under a second mount of the volume the folder has the same name.
  auto isAbove = [&](const char *other) {
    return isSame(folder, other) || isSame(folder, other / folder.filename());
  };
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
