// The volume of an item by statfs.
#include "Foundation/Files/Internal/MountPoint.h"

#include "Foundation/Text/PathUtilities.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/stat.h>

namespace NS {
namespace {

// The path without links; empty, with errno set, on failure.
std::optional<std::string> realPath(const std::string &path) {
  std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  return real ? std::optional<std::string>(real.get()) : std::nullopt;
}

bool isWithin(const std::string &path, const std::string &folder) {
  return folder == "/" || path == folder || path.starts_with(folder + "/");
}

} // namespace

std::optional<std::string> mountPointOfItem(const std::string &path) {
  struct stat status;
  if (path.empty() || path.find('\0') != std::string::npos) {
    errno = path.empty() ? ENOENT : EINVAL;
    return std::nullopt;
  }
  if (::lstat(path.c_str(), &status) != 0)
    return std::nullopt;
  // No link is a mount point, so it is on the volume of its folder.
  std::string folder = stringByDeletingLastPathComponent(path);
  auto place = realPath(!S_ISLNK(status.st_mode) ? path : folder.empty() ? "." : folder);
  struct statfs volume;
  if (!place || ::statfs(place->c_str(), &volume) != 0)
    return std::nullopt;
  // The start volume shows folders of its data volume as its own. Such an item
  // is not below the data volume's mount point.
  std::string mountPoint = volume.f_mntonname;
  return isWithin(*place, mountPoint) ? mountPoint : "/";
}

} // namespace NS
