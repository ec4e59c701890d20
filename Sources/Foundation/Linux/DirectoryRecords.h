// The records of getdents64, as the walk and the bulk attributes read them.
#pragma once

#include <cstdint>

namespace NS {

// A record in the kernel's layout; it extends over `length` bytes.
struct DirectoryRecord {
  std::uint64_t inode;
  std::int64_t nextOffset; // where to go on behind this record
  std::uint16_t length;
  std::uint8_t type;
  char name[1]; // to its NUL
};

// A multiple of eight bytes, as every length is.
inline const DirectoryRecord &directoryRecordAt(const char *bytes) {
  return *static_cast<const DirectoryRecord *>(static_cast<const void *>(bytes));
}

inline bool isDotOrDotDot(const char *name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace NS
