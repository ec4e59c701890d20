// File URLs as values; URLResourceValues.cpp has the functions that ask the
// host.
#include "Foundation/Files/URL.h"

#include "Foundation/Text/PathUtilities.h"

#include <sys/stat.h>

#include <cerrno>

namespace NS {
namespace {

bool endsInSlash(std::string_view path) {
  return !path.empty() && path.back() == '/';
}

std::string withoutTrailingSlash(std::string_view path) {
  while (path.size() > 1 && path.back() == '/')
    path.remove_suffix(1);
  return std::string(path);
}

bool isUnescapedInPath(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
    return true;
  return std::string_view("-._~!$&'()*+,=:@/").find(static_cast<char>(c)) != std::string_view::npos;
}

} // namespace

URL URL::fileURLWithPath(std::string_view path) {
  std::string plain = withoutTrailingSlash(path);
  struct stat status;
  bool isDirectory =
      endsInSlash(path) ||
      (!holdsNul(plain) && ::stat(plain.c_str(), &status) == 0 && S_ISDIR(status.st_mode));
  return URL(std::move(plain), isDirectory);
}

URL URL::fileURLWithPath(std::string_view path, bool isDirectory) {
  return URL(withoutTrailingSlash(path), isDirectory);
}

std::string URL::absoluteString() const {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text = "file://";
  for (char c : path_) {
    auto byte = static_cast<unsigned char>(c);
    if (isUnescapedInPath(byte)) {
      text += c;
    } else {
      text += '%';
      text += digits[byte >> 4];
      text += digits[byte & 15];
    }
  }
  return isDirectory_ && !endsInSlash(path_) ? text + "/" : text;
}

bool URL::checkResourceIsReachable(ErrorSlot error) const {
  struct stat status;
  if (!holdsNul(path_) && ::lstat(path_.c_str(), &status) == 0)
    return true;
  int cause = holdsNul(path_) ? EINVAL : errno;
  storeError(error, fileError(cause, path_, FileAccess::Reading));
  return false;
}

std::string_view describe(URLResourceKey key) {
  switch (key) {
  case URLResourceKey::IsSymbolicLink:
    return "NSURLIsSymbolicLinkKey";
  case URLResourceKey::Volume:
    return "NSURLVolumeURLKey";
  case URLResourceKey::EffectiveIcon:
    return "NSURLEffectiveIconKey";
  case URLResourceKey::LocalizedName:
    return "NSURLLocalizedNameKey";
  }
  return "";
}

} // namespace NS
