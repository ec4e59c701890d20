// Lists, divides and sorts.
#include "Foundation/Walking/POSIX/LongListing.h"

#include "Foundation/Walking/POSIX/FolderCalls.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>

namespace NS {
namespace {

constexpr std::size_t listingSize = 4 * 1024 * 1024;

} // namespace

void LongListing::begin(std::size_t owner, int folder, const char *records, std::size_t size) {
  if (!bytes_)
    bytes_.reset(new char[listingSize]);
  std::memcpy(bytes_.get(), records, size);
  std::size_t filled = size;
  while (listingSize - filled >= recordRoom) {
    long count = foldercalls::list(folder, bytes_.get() + filled, listingSize - filled);
    if (count <= 0)
      break;
    filled += static_cast<std::size_t>(count);
  }
  for (std::uint32_t place = 0; place < filled; place += at(place).length) {
    position_ = at(place).nextOffset;
    if (!isDotOrDotDot(at(place).name))
      (at(place).type == DT_DIR ? folders_ : files_).push_back(place);
  }
  std::sort(files_.begin(), files_.end(), [&](std::uint32_t left, std::uint32_t right) {
    return at(left).inode < at(right).inode;
  });
  owner_ = owner;
}

const DirectoryRecord *LongListing::next() {
  std::size_t next = next_++;
  if (next < files_.size())
    return &at(files_[next]);
  next -= files_.size();
  if (next < folders_.size())
    return &at(folders_[next]);
  end();
  return nullptr;
}

void LongListing::end() {
  owner_ = none;
  files_.clear();
  folders_.clear();
  next_ = 0;
}

} // namespace NS
