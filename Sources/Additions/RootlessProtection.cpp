// The walk over the names of an item's extended attributes.
#include "Additions/RootlessProtection.h"

#include "Foundation/Desktop/AppKitVersion.h"
#include "Foundation/Files/ExtendedAttributes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace kw {
namespace {

constexpr double lastVersionWithout = 1349.0;
constexpr const char *attributeName = "com.apple.rootless";

std::int64_t listNames(const std::string &path, std::vector<char> &buffer) {
  return NS::ExtendedAttributes::shared().listxattr(path, buffer.empty() ? nullptr : buffer.data(),
                                                    buffer.size(), NS::XATTR_NOFOLLOW_OPTION);
}

// The names with their NULs, the last one enforced; empty when there are none.
// The shortest name and its NUL take two bytes.
std::vector<char> namesOfAttributes(const std::string &path) {
  std::vector<char> names;
  std::int64_t size = listNames(path, names);
  if (size < 2)
    return {};
  names.resize(static_cast<std::size_t>(size));
  std::int64_t length = listNames(path, names);
  if (length < 2)
    return {};
  names.resize(std::min(names.size(), static_cast<std::size_t>(length)));
  names.back() = '\0';
  return names;
}

} // namespace

bool RootlessProtection::isSupported() {
  std::call_once(once_, [this] {
    supported_ = std::floor(NS::AppKitVersion::shared().number()) > lastVersionWithout;
  });
  return supported_;
}

bool RootlessProtection::protects(const std::string &path) {
  if (!isSupported() || path.empty())
    return false;
  std::vector<char> names = namesOfAttributes(path);
  std::size_t offset = 0;
  std::size_t length = 0;
  // A list whose rest is no longer than the last name counts as ended.
  while (offset + length < names.size()) {
    const char *name = names.data() + offset;
    length = std::strlen(name);
    if (length == 0)
      return false;
    // By the name's own length: a leading part of the attribute's name counts.
    if (std::strncmp(name, attributeName, length) == 0)
      return true;
    offset += length + 1;
  }
  return false;
}

} // namespace kw
