// Measures how much space an item takes on disk and formats sizes as text.
//
// Sizes are bytes. The sizer logs items that it cannot read and leaves them out
// of the total; a root that cannot be opened measures 0. It gives up a walk
// when the current request is cancelled or when descriptors or memory run out.
// The size is then the sum up to that point, and only wholeItemSizeAtPath
// reports that. It follows no link; packages are ordinary folders. Any thread
// may make any call, and all but fetchItemSizeAtURL block until done.
#pragma once

#include "Foundation/Base/Error.h"
#include "Foundation/Files/URL.h"
#include "Foundation/Values/NumberFormatter.h"
#include "Foundation/Values/String.h"
#include "Foundation/Walking/FTS.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kw {

// The bytes at which each unit begins: KB, MB, GB, TB, PB.
using SizeThresholds = std::array<std::uint64_t, 5>;
inline constexpr SizeThresholds decimalSizeThresholds{1000, 1'000'000, 1'000'000'000,
                                                      1'000'000'000'000, 1'000'000'000'000'000};
inline constexpr SizeThresholds binarySizeThresholds{std::uint64_t{1} << 10, std::uint64_t{1} << 20,
                                                     std::uint64_t{1} << 30, std::uint64_t{1} << 40,
                                                     std::uint64_t{1} << 50};

// Returns the size in the unit that suits it, and stores that unit unless the
// pointer is null. Any list but the two above counts in its first unit.
double scaledSize(std::uint64_t size, const SizeThresholds &thresholds, std::size_t *unitIndex);

class RVFileSizer {
public:
  using CompletionBlock = std::function<void(std::uint64_t size)>;

  virtual ~RVFileSizer() = default;
  // The first instance made sets the environment variable BLOCKSIZE of the
  // whole process to 512.
  static const RVFileSizer &shared();

  // Chooses allocated space (false, the default) or logical sizes rounded up to
  // the I/O block (true), for every later measurement of every thread.
  virtual void setReturnUncompressedFileSize(bool uncompressed) const;

  // The same as originalItemSizeAtPath.
  virtual std::uint64_t itemSizeAtPath(const std::string &path) const;
  virtual std::uint64_t itemSizeAtURL(const NS::URL &url) const;

  // Sums the allocated blocks of every entry of the tree. A folder's own blocks
  // count twice, on the way in and on the way out; each link to a file counts
  // in full; the walk enters other volumes. For an item of 2 TiB or more the
  // logical size counts instead.
  virtual std::uint64_t originalItemSizeAtPath(const std::string &path) const;
  // The same, with an error when the walk was given up.
  std::uint64_t wholeItemSizeAtPath(const std::string &path, NS::ErrorSlot error) const;

  // Returns the size in the system's index, unless that is 0, else the result
  // of the same walk. stopScanningForPath with an equal path ends this walk,
  // which then measures 0. Lookups for one path object happen one at a time,
  // since each holds its monitor; a plain string is an object of its own in
  // each call.
  virtual std::uint64_t itemSizeAtPathAbleToStop(const NS::String &path) const;
  std::uint64_t itemSizeAtPathAbleToStop(const std::string &path) const;
  // Asks a scan of the path under way to give up. Without one, the next scan
  // gives up at its first entry. Nil does nothing.
  virtual void stopScanningForPath(const std::optional<std::string> &path) const;
  // Withdraws every request that no scan has met yet.
  virtual void restorePathsToBeStopped() const;
  // The requests that no scan has met yet, oldest first; nil before the first
  // request.
  virtual std::optional<std::vector<std::string>> pathsToBeStopped() const;

  // Sums the logical sizes of regular files and links, each rounded up to its
  // I/O block; folders count nothing. Reads attributes in bulk and paths up to
  // 1,024 bytes; logs deeper items and passes over them.
  virtual std::uint64_t alternativeItemSizeAtPath(const std::string &path) const;
  // Measures one open folder of it. The buffer holds alternativePathBufferSize
  // bytes, in it the folder's path of the given length; on return it holds the
  // same.
  static constexpr std::size_t alternativePathBufferSize = 1025;
  virtual std::uint64_t alternativeDirectorySizeDescriptor(int descriptor, char *path,
                                                           std::uint64_t pathLen) const;

  // Measures one entry of the caller's own walk. An item with more than one
  // hard link counts 0, which includes most folders.
  virtual std::uint64_t itemSizeWithFTSEntry(const NS::FTSEntry *entry) const;

  // Measures with itemSizeAtPath on a background queue and calls the block
  // there. Neither argument may be nil; the receiver must live until the call.
  virtual void fetchItemSizeAtURL(const std::optional<NS::URL> &url,
                                  CompletionBlock completionBlock) const;

  // Rounds half-even, with at least one integer digit and at most two fraction
  // digits.
  virtual std::unique_ptr<NS::NumberFormatter> defaultSizeFormatter() const;

  // Formats a number, U+00A0 and a unit, in steps of 1000 or of 1024 but with
  // the same unit names. KB take no decimals, each larger unit one more. Looks
  // up the unit in the main bundle's string table if asked, the text for 0
  // always.
  virtual std::string displayItemSizeFromSize(std::uint64_t size, bool base2, bool localized) const;
  virtual std::string displayItemSizeFromSize(std::uint64_t size) const;
  virtual std::string nonLocalizedDisplayItemSizeFromSize(std::uint64_t size) const;
  virtual std::string displayItemSizeFromSizeInBase2(std::uint64_t size) const;
  virtual std::string displayItemSizeAtPath(const std::string &path) const;
  // The two halves of the decimal text. For 0 the first is the whole text and
  // the second is empty.
  virtual std::string displayItemSizeNumberFromSize(std::uint64_t size) const;
  virtual std::string displayItemSizeDimensionFromSize(std::uint64_t size) const;

protected:
  RVFileSizer();

  // Returns the formatter with at most that many fraction digits, 9 at the
  // most. The process makes each once, and all threads share it.
  virtual const NS::NumberFormatter &cachedSizeFormatter(std::size_t fractionDigits) const;
};

} // namespace kw
