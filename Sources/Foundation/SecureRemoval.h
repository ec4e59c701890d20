// Removal that overwrites: the platform's removefile call.
#pragma once

#include <cstdint>
#include <string>

namespace NS {

inline constexpr std::uint32_t REMOVEFILE_RECURSIVE_FLAG = 1;
inline constexpr std::uint32_t REMOVEFILE_SECURE_1_PASS_FLAG = 16;

class SecureRemoval {
public:
  virtual ~SecureRemoval() = default;
  static SecureRemoval &shared();
  static SecureRemoval *exchangeShared(SecureRemoval *replacement);

  // Removes the item, and with the recursive flag all beneath it. With the
  // one-pass flag each regular file is overwritten once in place and synced
  // before it is unlinked; links, FIFOs, sockets and devices are only
  // unlinked. Follows no link and stays inside the tree. 0, or -1 with errno
  // set; on failure what came before the failing item is gone.
  virtual int removefile(const std::string &path, std::uint32_t flags) = 0;
};

} // namespace NS
