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

  // Removes the item, and with the recursive flag all beneath it; without it a
  // folder must be empty. With the one-pass flag the data of each regular file
  // is overwritten once in place and synced before the file is unlinked, and is
  // then lost under all of the file's names; holes are left as they are. Links,
  // FIFOs, sockets and devices are only unlinked. Follows no link and stays
  // inside the tree and its volume; refuses what FileManager's removal refuses.
  // 0, or -1 with errno set: to ENOENT only where the item itself is gone, to
  // ECANCELED when the current progress was cancelled. On failure what came
  // before the failing item is gone, and that item itself may be overwritten.
  virtual int removefile(const std::string &path, std::uint32_t flags) = 0;
};

} // namespace NS
