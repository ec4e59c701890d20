// The BSD status and flags of an item, which decide whether it can be removed
// at all. A class, so that a test can lie about flags and times.
#pragma once

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

class FileFlags {
public:
  virtual ~FileFlags() = default;
  static FileFlags &shared();
  static FileFlags *exchangeShared(FileFlags *replacement);

  // stat: follows a final link. 0, or -1 with errno set.
  virtual int status(const std::string &path, FileStatus &status) = 0;
  // Clears those of an item's flags that stand in the mask and leaves all
  // others; follows a final link, never waits on a FIFO, never opens a device.
  // The flags are read and written through one descriptor, so that an item that
  // takes another's place meanwhile keeps its own. 0, also when nothing is set
  // or nothing is there; -1 with errno set when a flag cannot be cleared.
  virtual int clear(const std::string &path, std::uint32_t mask) = 0;

  // Told of each item whose flags could not be changed.
  using FailureHandler = std::function<void(const std::string &path, int errnum)>;

  // Clears the mask's flags of all beneath a folder, the folder itself
  // excluded, each item before what it holds and in the order of the folders:
  // what clear of each path would do, but without looking up a
  // path, so that no depth is too deep and a folder swapped for a link
  // meanwhile is not descended into. The flags of a link that stands in the
  // tree are its target's, as status has it. Stays off other volumes mounted
  // inside and out of what cannot be removed ("/", a path ending in "." or
  // ".."). Nothing happens when the path is no folder. Stops at its next item
  // when the current progress is cancelled.
  virtual void clearBeneath(const std::string &path, std::uint32_t mask,
                            const FailureHandler &failed) = 0;
};

} // namespace NS
