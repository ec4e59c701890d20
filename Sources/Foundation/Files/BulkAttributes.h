// Attributes of many items in one call: the packed records of getattrlist and
// getdirentriesattr. A class, so that a test can fill the records itself.
//
// Thread-safe, except that only one thread at a time may read through one
// descriptor. Calls block. They return -1 with errno set on failure.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstddef>
#include <cstdint>

namespace NS {

// The requested attributes, by group. The numbers are the platform's own.
struct AttributeList {
  std::uint16_t bitmapCount = 5; // the number of groups below
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
inline constexpr std::uint32_t VnodeNone = 0; // of no known kind
inline constexpr std::uint32_t VnodeRegular = 1;
inline constexpr std::uint32_t VnodeDirectory = 2;
inline constexpr std::uint32_t VnodeBlockDevice = 3;
inline constexpr std::uint32_t VnodeCharacterDevice = 4;
inline constexpr std::uint32_t VnodeLink = 5;
inline constexpr std::uint32_t VnodeSocket = 6;
inline constexpr std::uint32_t VnodeFIFO = 7;

// A record is its 32-bit length and then the requested attributes, in the
// order: returned attributes (five 32-bit groups), name reference (signed
// 32-bit offset from the reference itself, 32-bit length with the NUL), object
// type (32 bits), total size (64), I/O block size (32). Only the name, which
// comes last, is padded, to a multiple of four bytes.
class BulkAttributes : public SharedInstance<BulkAttributes> {
public:
  virtual ~BulkAttributes() = default;
  static BulkAttributes &real();

  // Writes one record, without a name, of the item at the path; does not follow
  // a final link. ERANGE when the buffer is too small.
  virtual int getattrlist(const char *path, const AttributeList &list, void *buffer,
                          std::size_t size, std::uint32_t options) = 0;

  // Writes the next records of an open folder, which keeps its position. The
  // count is the number of wanted records on entry and of written ones on
  // return; fewer when the buffer is full. Passes over items that vanish
  // meanwhile. Returns 0, or 1 with the last records (which may be none).
  // Callers repeat a call that fails, so it only fails for causes that may
  // pass: no memory, or a buffer too small for one record (ERANGE). A folder
  // that cannot be read on for another cause ends there, with a line in the
  // log.
  virtual int getdirentriesattr(int descriptor, const AttributeList &list, void *buffer,
                                std::size_t size, std::uint32_t &count, std::uint32_t &base,
                                std::uint32_t &state, std::uint32_t options) = 0;

  // Opens a folder for reading, close-on-exec; the caller closes it. Refuses a
  // final link and every item other than a folder, without opening it.
  virtual int openFolder(const char *path);
  virtual void closeFolder(int descriptor);
};

} // namespace NS
