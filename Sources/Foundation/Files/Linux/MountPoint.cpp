// Walks up from the item until the mount changes. A table of mounts could name a
// path that a later mount hides; a path that leads to the item is never hidden.
#include "Foundation/Files/Internal/MountPoint.h"

#include "Foundation/Text/PathUtilities.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

namespace NS {
namespace {

// The identifier, 0 with kernels before 5.8, and the two numbers of the device.
using Mount = std::array<std::uint64_t, 3>;

std::optional<Mount> mountOf(const std::string &path) {
  struct statx status;
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_MNT_ID,
              &status) != 0)
    return std::nullopt;
  std::uint64_t identifier = (status.stx_mask & STATX_MNT_ID) ? status.stx_mnt_id : 0;
  return Mount{identifier, status.stx_dev_major, status.stx_dev_minor};
}

std::optional<std::string> realPath(const std::string &path) {
  std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  return real ? std::optional<std::string>(real.get()) : std::nullopt;
}

// Resolves every link but the last component's own. The path is not empty.
std::optional<std::string> realPathOfItem(const std::string &path) {
  std::string name = lastPathComponent(path);
  if (name == "..")
    return realPath(path);
  std::string parent = stringByDeletingLastPathComponent(path);
  std::optional<std::string> folder = realPath(parent.empty() ? "." : parent);
  return folder ? std::optional(stringByAppendingPathComponent(*folder, name)) : std::nullopt;
}

} // namespace

std::optional<std::string> mountPointOfItem(const std::string &path) {
  if (path.empty() || path.find('\0') != std::string::npos) {
    errno = path.empty() ? ENOENT : EINVAL;
    return std::nullopt;
  }
  std::optional<std::string> current = realPathOfItem(path);
  if (!current)
    return std::nullopt;
  std::optional<Mount> mount = mountOf(*current);
  if (!mount)
    return std::nullopt;
  while (*current != "/") {
    std::string parent = stringByDeletingLastPathComponent(*current);
    if (mountOf(parent) != mount)
      break;
    current = parent;
  }
  return current;
}

} // namespace NS
