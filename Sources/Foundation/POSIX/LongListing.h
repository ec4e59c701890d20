// A long part of one folder's listing, in the order in which it is best removed:
// files by their numbers, then folders. For bodies of the seam only.
//
// A volume keeps what describes its files in the order of their numbers, and
// lists a large folder in the order of a hash. Removing files by the listing
// touches the volume's tables to and fro; by number it goes through them once.
//
// One folder of a chain has the long listing at a time; others that are large go
// by their own listing meanwhile. Where the folder is closed the rest is given
// up and listed again later. As long as there are files, the position to come
// back to is that before all of them, since the ones that were given may be
// anywhere in the listing; who removes what is given meets none of them again.
// With the folders, which are in the order of the listing, it is the position
// behind the one given last.
#pragma once

#include "Foundation/POSIX/DirectoryRecords.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace NS {

class LongListing {
public:
  bool isFree() const { return owner_ == none; }
  bool isOf(std::size_t owner) const { return owner_ == owner; }

  // Takes the records that a folder's listing begins with, and reads on behind
  // them. A failure to read on is left to who reads on later.
  void begin(std::size_t owner, int folder, const char *records, std::size_t size);
  // Null at the end, with which the listing is free.
  const DirectoryRecord *next();
  // Whether what was given last is one of the folders.
  bool isAmongFolders() const { return next_ > files_.size(); }
  void end();

private:
  static constexpr std::size_t none = ~std::size_t{0};
  const DirectoryRecord &at(std::uint32_t place) const {
    return directoryRecordAt(bytes_.get() + place);
  }

  std::size_t owner_ = none;
  std::unique_ptr<char[]> bytes_;
  std::vector<std::uint32_t> files_; // where the records begin
  std::vector<std::uint32_t> folders_;
  std::size_t next_ = 0; // of the files, then of the folders
};

} // namespace NS
