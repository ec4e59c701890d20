// Lists the name space "user." only. The others belong to the system, and their
// names must not be taken for names that the platform knows.
#include "Foundation/Files/ExtendedAttributes.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <sys/xattr.h>

namespace NS {
namespace {

constexpr std::string_view prefix = "user.";
constexpr std::size_t longestList = 65536; // the kernel's limit

// The names with their NULs; -1 with errno set.
ssize_t readNames(const std::string &path, bool follow, std::string &names) {
  names.resize(longestList);
  ssize_t length = follow ? ::listxattr(path.c_str(), names.data(), names.size())
                          : ::llistxattr(path.c_str(), names.data(), names.size());
  names.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return length;
}

std::string namesOfUser(std::string_view all) {
  std::string kept;
  while (!all.empty()) {
    std::size_t end = std::min(all.find('\0'), all.size() - 1);
    std::string_view name = all.substr(0, end + 1); // with its NUL
    if (name.starts_with(prefix))
      kept += name.substr(prefix.size());
    all.remove_prefix(end + 1);
  }
  return kept;
}

class FileSystem final : public ExtendedAttributes {
public:
  std::int64_t listxattr(const std::string &path, char *names, std::size_t size,
                         int options) override {
    if (path.find('\0') != std::string::npos) {
      errno = EINVAL;
      return -1;
    }
    std::string all;
    if (readNames(path, (options & XATTR_NOFOLLOW_OPTION) == 0, all) < 0)
      return -1;
    std::string kept = namesOfUser(all);
    if (!names)
      return static_cast<std::int64_t>(kept.size());
    if (kept.size() > size) {
      errno = ERANGE;
      return -1;
    }
    std::copy(kept.begin(), kept.end(), names);
    return static_cast<std::int64_t>(kept.size());
  }
};

} // namespace

ExtendedAttributes &ExtendedAttributes::real() {
  return lastingInstance<FileSystem>();
}

} // namespace NS
