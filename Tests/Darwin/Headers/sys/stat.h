// The status of items as the platform has it, with its flags and all its times.
// Its structure takes the place of this host's, by its name.
#pragma once
#pragma GCC system_header
#include_next <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <sys/types.h>

#define UF_IMMUTABLE 0x00000002u
#define UF_APPEND 0x00000004u
#define UF_HIDDEN 0x00008000u
#define SF_IMMUTABLE 0x00020000u
#define SF_APPEND 0x00040000u
#define SF_RESTRICTED 0x00080000u

struct darwin_stat {
  std::int32_t st_dev;
  std::uint16_t st_mode;
  std::uint16_t st_nlink;
  std::uint64_t st_ino;
  uid_t st_uid;
  gid_t st_gid;
  std::int32_t st_rdev;
  timespec st_atimespec;
  timespec st_mtimespec;
  timespec st_ctimespec;
  timespec st_birthtimespec;
  off_t st_size;
  std::int64_t st_blocks;
  std::int32_t st_blksize;
  std::uint32_t st_flags;
};

int darwin_fstatat(int folder, const char *path, struct darwin_stat *status, int flags);
int darwin_fstat(int item, struct darwin_stat *status);
int darwin_futimens(int item, const timespec *times);
int fchflags(int item, unsigned flags);

// The shim itself uses this host's.
#ifndef KW_DARWIN_SHIM
inline int darwin_lstat(const char *path, struct darwin_stat *status) {
  return darwin_fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}
inline int darwin_stat(const char *path, struct darwin_stat *status) {
  return darwin_fstatat(AT_FDCWD, path, status, 0);
}

#define stat darwin_stat
#define fstatat darwin_fstatat
#define fstat darwin_fstat
#define lstat darwin_lstat
#define futimens darwin_futimens
#endif
