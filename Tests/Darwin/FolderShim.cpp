// The listing of the platform's library, from this host's own. Their records
// differ in form.
#include "Darwin/Shim.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <sys/types.h>
#include <vector>

extern "C" ssize_t __getdirentries64(int folder, void *buffer, size_t size, off_t *base);

namespace {

// Number, position after it, length, length of the name, type, name.
constexpr std::size_t nameOffset = 21;

// Returns the length of the record.
std::size_t write(char *place, const dirent64 &entry, const char *name) {
  auto nameLength = static_cast<std::uint16_t>(std::strlen(name));
  auto length = static_cast<std::uint16_t>((nameOffset + nameLength + 1 + 7) / 8 * 8);
  std::memset(place, 0, length);
  std::memcpy(place, &entry.d_ino, 8);
  if (kwtest::darwin::shim().recordPositions)
    std::memcpy(place + 8, &entry.d_off, 8);
  std::memcpy(place + 16, &length, 2);
  std::memcpy(place + 18, &nameLength, 2);
  std::memcpy(place + 20, &entry.d_type, 1);
  std::memcpy(place + nameOffset, name, nameLength);
  return length;
}

} // namespace

// A record of the platform is at most eight bytes longer than this host's, which
// has at least twenty-four.
ssize_t __getdirentries64(int folder, void *buffer, size_t size, off_t *base) {
  std::vector<char> listed(size / 4 * 3);
  ssize_t count = ::getdents64(folder, listed.data(), listed.size());
  if (count <= 0)
    return count;
  char *next = static_cast<char *>(buffer);
  for (ssize_t at = 0; at < count;) {
    dirent64 entry;
    std::memcpy(&entry, listed.data() + at, offsetof(dirent64, d_name));
    next += write(next, entry, listed.data() + at + offsetof(dirent64, d_name));
    at += entry.d_reclen;
    *base = entry.d_off;
  }
  return next - static_cast<char *>(buffer);
}
