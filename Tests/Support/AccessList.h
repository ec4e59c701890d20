// Access lists as the host's volumes keep them.
#pragma once

#include <cstdint>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <string>
#include <sys/xattr.h>
#include <vector>

namespace kwtest {

// A class of users and their rights, three bits.
struct Grant {
  std::uint16_t tag;
  std::uint16_t rights;
  std::uint32_t identifier = static_cast<std::uint32_t>(ACL_UNDEFINED_ID);
};

inline std::string accessListOf(const std::vector<Grant> &grants) {
  auto append = [](std::string &bytes, std::uint32_t number, int size) {
    for (; size > 0; --size, number >>= 8)
      bytes += static_cast<char>(number & 0xff);
  };
  std::string list;
  append(list, POSIX_ACL_XATTR_VERSION, 4);
  for (const Grant &grant : grants) {
    append(list, grant.tag, 2);
    append(list, grant.rights, 2);
    append(list, grant.identifier, 4);
  }
  return list;
}

inline constexpr const char *accessListName = "system.posix_acl_access";
inline constexpr const char *defaultListName = "system.posix_acl_default";

inline bool setAttribute(const std::string &path, const char *name, const std::string &value) {
  return ::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

// Empty when there is none.
inline std::string attribute(const std::string &path, const char *name) {
  std::string value(65536, '\0');
  ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
  value.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  return value;
}

} // namespace kwtest

// For tests that cannot go on without the list or attribute that they set.
#define KW_REQUIRE_ATTRIBUTE(path, name, value)                                                    \
  if (!kwtest::setAttribute(path, name, value))                                                    \
  GTEST_SKIP() << "needs a volume with " << (name)
