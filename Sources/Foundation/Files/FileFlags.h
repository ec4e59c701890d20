// The BSD status and flags of an item, which decide whether it can be removed
// at all. A class, so that a test can replace flags and times.
//
// Thread-safe. Calls block on the disk.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <cstdint>
#include <functional>
#include <string>

namespace NS {

// st_flags bits; the numbers are the platform's own.
inline constexpr std::uint32_t UF_IMMUTABLE_FLAG = 0x00000002;
inline constexpr std::uint32_t UF_APPEND_FLAG = 0x00000004;
inline constexpr std::uint32_t UF_HIDDEN_FLAG = 0x00008000;
inline constexpr std::uint32_t SF_IMMUTABLE_FLAG = 0x00020000;
inline constexpr std::uint32_t SF_APPEND_FLAG = 0x00040000;
inline constexpr std::uint32_t SF_RESTRICTED_FLAG = 0x00080000;

// Seconds since 1970; times before it are negative.
struct FileStatus {
  std::uint32_t flags = 0; // st_flags
  std::int64_t birthTime = 0;
  std::int64_t modificationTime = 0;
  std::int64_t accessTime = 0;
};

class FileFlags : public SharedInstance<FileFlags> {
public:
  virtual ~FileFlags() = default;
  static FileFlags &real();

  // As stat: follows a final link. Returns 0, or -1 with errno set.
  virtual int status(const std::string &path, FileStatus &status) = 0;
  // Clears the item's flags that are in the mask and leaves all others. Follows
  // a final link, never waits on a FIFO, never opens a device. Reads and writes
  // the flags through one descriptor, so that an item that takes another's
  // place meanwhile keeps its own. Returns 0, also when no flag is set or the
  // item is missing; -1 with errno set when it cannot clear a flag.
  virtual int clear(const std::string &path, std::uint32_t mask) = 0;

  // Called for each item whose flags could not be changed.
  using FailureHandler = std::function<void(const std::string &path, int errnum)>;

  // Clears the mask's flags of all items beneath a folder, without the folder
  // itself, each item before its contents and in the order of the folders. It
  // does the same as clear for each path, but looks up no path, so it works at
  // any depth and never descends into a link that replaced a folder. For a link
  // in the tree it clears the flags of the target, as status reads them. It
  // stays off other volumes mounted inside and out of trees that must not be
  // removed ("/", a path ending in "." or ".."). Does nothing when the path is
  // not a folder. Stops at its next item when the current progress is
  // cancelled.
  virtual void clearBeneath(const std::string &path, std::uint32_t mask,
                            const FailureHandler &failed) = 0;
};

} // namespace NS
