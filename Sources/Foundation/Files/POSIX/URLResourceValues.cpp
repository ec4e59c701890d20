// Resource values of files. The host's own files have the bodies of all but the
// first.
#include "Foundation/Files/URL.h"

#include "Foundation/Files/Internal/ItemPresentation.h"
#include "Foundation/Files/Internal/MountPoint.h"

#include <cerrno>
#include <sys/stat.h>
#include <utility>

namespace NS {
namespace {

std::optional<bool> isSymbolicLink(const std::string &path) {
  struct stat status;
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return {};
  }
  if (::lstat(path.c_str(), &status) != 0)
    return {};
  return S_ISLNK(status.st_mode);
}

template <typename Value>
std::optional<URLResourceValue> resourceValue(std::optional<Value> value) {
  if (!value)
    return {};
  return URLResourceValue(std::move(*value));
}

// Empty, with errno set, on failure.
std::optional<URLResourceValue> readValue(const std::string &path, URLResourceKey key) {
  switch (key) {
  case URLResourceKey::IsSymbolicLink:
    return resourceValue(isSymbolicLink(path));
  case URLResourceKey::Volume:
    if (auto mountPoint = mountPointOfItem(path))
      return URLResourceValue(URL::fileURLWithPath(*mountPoint, true));
    return {};
  case URLResourceKey::EffectiveIcon:
    return resourceValue(effectiveIconOfItem(path));
  case URLResourceKey::LocalizedName:
    return resourceValue(localizedNameOfItem(path));
  }
  errno = EINVAL;
  return {};
}

} // namespace

std::optional<URLResourceValue> getResourceValue(const URL &url, URLResourceKey key,
                                                 ErrorSlot error) {
  std::optional<URLResourceValue> value = readValue(url.path(), key);
  if (!value)
    storeError(error, fileError(errno, url.path(), FileAccess::Reading));
  return value;
}

} // namespace NS
