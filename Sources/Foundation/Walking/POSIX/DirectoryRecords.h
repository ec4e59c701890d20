// The records of a listing, in the layout of getdents64, and memory for them.
// Internal to Foundation.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <limits>
#include <memory>

namespace NS {

// One record; it takes `length` bytes with its whole name.
struct DirectoryRecord {
  std::uint64_t inode;
  std::int64_t nextOffset; // the position after this record
  std::uint16_t length;
  std::uint8_t type;
  char name[1]; // to its NUL
};

// The record at this place, which is aligned to eight bytes, as every length is a
// multiple of eight.
inline const DirectoryRecord &directoryRecordAt(const char *bytes) {
  return *static_cast<const DirectoryRecord *>(static_cast<const void *>(bytes));
}

// Enough space for any record.
inline constexpr std::size_t recordRoom = 4 * 1024;

inline bool isDotOrDotDot(const char *name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

inline bool mayBeFolder(std::uint8_t type) {
  return type == DT_DIR || type == DT_UNKNOWN;
}

// The position in the folder after the batch, which is not empty.
inline std::int64_t positionAfter(const char *batch, std::size_t size) {
  std::size_t last = 0;
  for (std::size_t at = 0; at < size; at += directoryRecordAt(batch + at).length)
    last = at;
  return directoryRecordAt(batch + last).nextOffset;
}

// Many volumes give their last record the greatest offset of all. No further
// record can be there, which spares an empty read.
inline bool isLastPosition(std::int64_t position) {
  return position == std::numeric_limits<std::int64_t>::max();
}

// Memory for many batches of records, which grows without being cleared first.
class RecordStack {
public:
  char *at(std::size_t offset) { return bytes_.get() + offset; }
  void reserve(std::size_t size) {
    if (size <= capacity_)
      return;
    std::size_t grown = std::max(size, capacity_ * 2);
    std::unique_ptr<char[]> bytes(new char[grown]);
    if (capacity_ > 0)
      std::memcpy(bytes.get(), bytes_.get(), capacity_);
    bytes_ = std::move(bytes);
    capacity_ = grown;
  }

private:
  std::unique_ptr<char[]> bytes_;
  std::size_t capacity_ = 0;
};

} // namespace NS
