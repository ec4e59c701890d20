// The names as the platform gives them.
#include "Foundation/Files/ExtendedAttributes.h"

#include "Foundation/Files/macOS/ExtendedAttributeCalls.h"

#include <cerrno>

namespace NS {
namespace {

static_assert(XATTR_NOFOLLOW_OPTION == XATTR_NOFOLLOW);

class FileSystem final : public ExtendedAttributes {
public:
  std::int64_t listxattr(const std::string &path, char *names, std::size_t size,
                         int options) override {
    if (path.find('\0') == std::string::npos)
      return ::listxattr(path.c_str(), names, size, options);
    errno = EINVAL;
    return -1;
  }
};

} // namespace

ExtendedAttributes &ExtendedAttributes::real() {
  return lastingInstance<FileSystem>();
}

} // namespace NS
