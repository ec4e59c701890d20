// Removal that overwrites: the platform's removefile call.
//
// Thread-safe. Blocks until it is done.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <string>

namespace NS {

inline constexpr std::uint32_t REMOVEFILE_RECURSIVE_FLAG = 1;
inline constexpr std::uint32_t REMOVEFILE_SECURE_1_PASS_FLAG = 16;

class SecureRemoval : public SharedInstance<SecureRemoval> {
public:
  virtual ~SecureRemoval() = default;
  static SecureRemoval &real();

  // Removes the item, and with the recursive flag all items beneath it; without
  // it a folder must be empty. With the one-pass flag it overwrites the data of
  // each regular file once in place and syncs it before it unlinks the file;
  // the data is then lost under all of the file's names. Holes stay holes. It
  // only unlinks links, FIFOs, sockets and devices. Follows no link and stays
  // inside the tree and its volume; refuses the same paths as FileManager's
  // removal. Returns 0, or -1 with errno set: ECANCELED when the current progress
  // was cancelled; on Linux ENOENT only when the item itself is gone, while the
  // platform's call on macOS may give it for an item beneath, too. On failure the
  // items before the failing one are gone, and that item itself may be
  // overwritten.
  virtual int removefile(const std::string &path, std::uint32_t flags) = 0;
};

} // namespace NS
