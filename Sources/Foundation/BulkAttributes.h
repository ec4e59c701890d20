// Attributes of many items in one call: the packed records of getattrlist and
// getdirentriesattr. A class, so that a test can fill the records itself.
//
// Thread-safe as far as the descriptors are. Calls return -1 with errno set on
// failure.
#pragma once

#include <cstddef>
#include <cstdint>

namespace NS {

// Which attributes to give, by group. The numbers are the platform's own.
struct AttributeList {
  std::uint16_t bitmapCount = 5; // groups below
  std::uint16_t reserved = 0;
  std::uint32_t common = 0;
  std::uint32_t volume = 0;
  std::uint32_t directory = 0;
  std::uint32_t file = 0;
  std::uint32_t fork = 0;
};

inline constexpr std::uint32_t CommonAttributeName = 0x00000001;
inline constexpr std::uint32_t CommonAttributeObjectType = 0x00000008;
inline constexpr std::uint32_t CommonAttributeReturnedAttributes = 0x80000000;
inline constexpr std::uint32_t FileAttributeTotalSize = 0x00000002;
inline constexpr std::uint32_t FileAttributeIOBlockSize = 0x00000008;

inline constexpr std::uint32_t FileSystemOptionNoFollow = 0x00000001;
inline constexpr std::uint32_t FileSystemOptionPackInvalidAttributes = 0x00000008;

// Object types of the records.
inline constexpr std::uint32_t VnodeRegular = 1;
inline constexpr std::uint32_t VnodeDirectory = 2;
inline constexpr std::uint32_t VnodeBlockDevice = 3;
inline constexpr std::uint32_t VnodeCharacterDevice = 4;
inline constexpr std::uint32_t VnodeLink = 5;
inline constexpr std::uint32_t VnodeSocket = 6;
inline constexpr std::uint32_t VnodeFIFO = 7;

// A record is its 32-bit length and then the attributes asked for, in the
// order: returned attributes (five 32-bit groups), name reference (signed
// 32-bit offset from the reference itself, 32-bit length with the NUL), object
// type (32 bits), total size (64), I/O block size (32). Nothing is padded but
// the name, which stands last, to a multiple of four bytes.
class BulkAttributes {
public:
  virtual ~BulkAttributes() = default;
  static BulkAttributes &shared();
  static BulkAttributes *exchangeShared(BulkAttributes *replacement);

  // One record of the item at the path; links are not followed.
  virtual int getattrlist(const char *path, const AttributeList &list, void *buffer,
                          std::size_t size, std::uint32_t options) = 0;

  // The next records of an open folder, which keeps the place where it stands.
  // The count is how many are wanted and becomes how many there are; fewer are
  // given when the buffer is full. Items that vanish meanwhile are passed over.
  // 0, or 1 with the last records (which may be none). Callers repeat a call
  // that fails, so only what may pass is a failure: no memory, or a buffer too
  // small for one record (ERANGE). A folder that cannot be read on for another
  // cause ends there, with a line in the log.
  virtual int getdirentriesattr(int descriptor, const AttributeList &list, void *buffer,
                                std::size_t size, std::uint32_t &count, std::uint32_t &base,
                                std::uint32_t &state, std::uint32_t options) = 0;

  // A descriptor of the folder, for reading. A final link is refused, and what
  // is no folder neither waits nor acts.
  virtual int openFolder(const char *path);
  virtual void closeFolder(int descriptor);
};

} // namespace NS
