// A long part of one folder's listing, in the best order for removal: files by
// their numbers, then folders. Internal to Foundation.
//
// A volume keeps the data of its files in the order of their numbers, and lists
// a large folder in the order of a hash. Removal in the order of the listing
// jumps to and fro in the volume's tables; by number it goes through them once.
//
// One folder of a chain has the long listing at a time; other large folders go
// by their own listing meanwhile. The listing stays when the chain closes the
// folder for a walk deep beneath it: to list the folder again after each of many
// deep folders would take the square of their number. At its end the chain lists
// on from the position after all of it.
#pragma once

#include "Foundation/Walking/POSIX/DirectoryRecords.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace NS {

class LongListing {
public:
  bool isFree() const { return owner_ == none; }
  bool isOf(std::size_t owner) const { return owner_ == owner; }

  // Takes the first records of a folder's listing, and lists on after them. Ignores
  // a failure of that: the chain meets it again when it lists on.
  void begin(std::size_t owner, int folder, const char *records, std::size_t size);
  // Null at the end, which frees the listing.
  const DirectoryRecord *next();
  // The position in the folder after all records of the present listing, or of
  // the last one.
  std::int64_t position() const { return position_; }
  void end();

private:
  static constexpr std::size_t none = ~std::size_t{0};
  const DirectoryRecord &at(std::uint32_t place) const {
    return directoryRecordAt(bytes_.get() + place);
  }

  std::size_t owner_ = none;
  std::unique_ptr<char[]> bytes_;
  std::vector<std::uint32_t> files_; // the beginnings of the records
  std::vector<std::uint32_t> folders_;
  std::size_t next_ = 0; // of the files, then of the folders
  std::int64_t position_ = 0;
};

} // namespace NS
