// The names of an item's extended attributes.
//
// Thread-safe. Blocks on the disk.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace NS {

inline constexpr int XATTR_NOFOLLOW_OPTION = 1; // does not follow a final link

class ExtendedAttributes : public SharedInstance<ExtendedAttributes> {
public:
  virtual ~ExtendedAttributes() = default;
  static ExtendedAttributes &real();

  // As listxattr: writes the names one after another, each with its NUL, and
  // returns the number of bytes; with a null buffer only returns it. Returns -1
  // with errno set on failure, ERANGE when the buffer is too small. On Linux it
  // lists the names of the name space "user." alone, without that prefix.
  virtual std::int64_t listxattr(const std::string &path, char *names, std::size_t size,
                                 int options) = 0;
};

} // namespace NS
