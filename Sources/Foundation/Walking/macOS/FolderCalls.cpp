// Folders by the call beneath readdir, and fstat.
#include "Foundation/Walking/POSIX/FolderCalls.h"

#include <cerrno>
#include <cstring>
#include <sys/types.h>
#include <unistd.h>

// The system's library has it for readdir, but no header declares it.
extern "C" ssize_t __getdirentries64(int folder, void *buffer, size_t size, off_t *base);

namespace NS::foldercalls {
namespace {

// The host's record: number, position after it, length, length of the name,
// type, name. It is two bytes longer than ours in front of the name.
constexpr std::size_t hostLength = 16;
constexpr std::size_t hostType = 20;
constexpr std::size_t hostName = 21;

// Converts each record into one of ours, in place. A volume need not give the
// position after each record; that after the last one is the descriptor's own.
void convert(char *bytes, std::size_t size, std::int64_t end) {
  std::uint16_t length = 0;
  for (std::size_t at = 0; at + hostName < size; at += length) {
    char *record = bytes + at;
    std::memcpy(&length, record + hostLength, sizeof length);
    if (length <= hostName)
      return;
    if (at + length >= size)
      std::memcpy(record + offsetof(DirectoryRecord, nextOffset), &end, sizeof end);
    record[offsetof(DirectoryRecord, type)] = record[hostType];
    std::memmove(record + offsetof(DirectoryRecord, name), record + hostName, length - hostName);
  }
}

} // namespace

const int lookFlags = AT_SYMLINK_NOFOLLOW;

long list(int folder, void *buffer, std::size_t size) {
  off_t base = 0;
  ssize_t count = ::__getdirentries64(folder, buffer, size, &base);
  if (count > 0)
    convert(static_cast<char *>(buffer), static_cast<std::size_t>(count),
            ::lseek(folder, 0, SEEK_CUR));
  return count;
}

// On this host no volume is visible at two places.
int identify(int item, FolderIdentity &identity) {
  struct stat found;
  if (::fstat(item, &found) != 0)
    return errno;
  identity.id = {static_cast<std::uint64_t>(found.st_dev), found.st_ino};
  identity.mount = identity.id.device;
  return 0;
}

} // namespace NS::foldercalls
