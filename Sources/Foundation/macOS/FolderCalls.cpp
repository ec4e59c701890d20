// Folders by the call beneath readdir, and fstatat.
#include "Foundation/POSIX/FolderCalls.h"

#include <cerrno>
#include <cstring>
#include <sys/types.h>
#include <unistd.h>

// The system's library keeps it for readdir and declares it nowhere.
extern "C" ssize_t __getdirentries64(int folder, void *buffer, size_t size, off_t *base);

namespace NS::foldercalls {
namespace {

// The host's record: number, position behind it, length, length of the name,
// type, name. It is two bytes longer than ours in front of the name.
constexpr std::size_t hostLength = 16;
constexpr std::size_t hostType = 20;
constexpr std::size_t hostName = 21;

// Makes each record one of ours, where it stands.
void convert(char *bytes, std::size_t size) {
  std::uint16_t length = 0;
  for (std::size_t at = 0; at + hostName < size; at += length) {
    char *record = bytes + at;
    std::memcpy(&length, record + hostLength, sizeof length);
    if (length <= hostName)
      return;
    record[offsetof(DirectoryRecord, type)] = record[hostType];
    std::memmove(record + offsetof(DirectoryRecord, name), record + hostName, length - hostName);
  }
}

FTSStat statusFrom(const struct stat &found) {
  FTSStat status;
  status.device = static_cast<std::uint64_t>(found.st_dev);
  status.inode = found.st_ino;
  status.mode = found.st_mode;
  status.linkCount = found.st_nlink;
  status.size = found.st_size;
  status.blocks = found.st_blocks;
  status.blockSize = found.st_blksize;
  return status;
}

} // namespace

long list(int folder, void *buffer, std::size_t size) {
  off_t base = 0;
  ssize_t count = ::__getdirentries64(folder, buffer, size, &base);
  if (count > 0)
    convert(static_cast<char *>(buffer), static_cast<std::size_t>(count));
  return count;
}

int readStatus(int folder, const char *name, FTSStat &status) {
  struct stat found;
  if (::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) != 0)
    return errno;
  status = statusFrom(found);
  return 0;
}

int readStatus(int folder, FTSStat &status) {
  struct stat found;
  if (::fstat(folder, &found) != 0)
    return errno;
  status = statusFrom(found);
  return 0;
}

} // namespace NS::foldercalls
