// The BSD status and flags of an item, which decide whether it can be removed
// at all. A class, so that a test can lie about flags and times.
#pragma once

#include <cstdint>
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
  // chflags: follows a final link, never waits on a FIFO, never opens a
  // device. Where the host knows only some of the flags, the others are left
  // as they are. 0, or -1 with errno set.
  virtual int change(const std::string &path, std::uint32_t flags) = 0;
};

} // namespace NS
