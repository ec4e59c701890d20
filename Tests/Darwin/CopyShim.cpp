// Clones and the attributes of copies, after the manual pages.
#define KW_DARWIN_SHIM
#include "Darwin/Headers/copyfile.h"
#include "Darwin/Headers/sys/clonefile.h"
#include "Darwin/Shim.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

using kwtest::darwin::shim;

namespace {

constexpr std::string_view lists = "system.posix_acl_";

std::string pathOf(int item) {
  return "/proc/self/fd/" + std::to_string(item);
}

bool isOfKind(const char *name, std::uint32_t flags) {
  return std::string_view(name).starts_with(lists) ? (flags & COPYFILE_ACL) != 0
                                                   : (flags & COPYFILE_XATTR) != 0;
}

// The names of one kind. A volume without attributes has none.
std::vector<std::string> namesOf(int item, std::uint32_t flags) {
  char all[65536];
  ssize_t length = ::listxattr(pathOf(item).c_str(), all, sizeof all);
  std::vector<std::string> names;
  for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(all + at)) + 1)
    if (isOfKind(all + at, flags))
      names.emplace_back(all + at);
  return names;
}

int copyAttribute(int source, int target, const std::string &name) {
  char value[65536];
  ssize_t size = ::getxattr(pathOf(source).c_str(), name.c_str(), value, sizeof value);
  if (size < 0)
    return -1;
  return ::setxattr(pathOf(target).c_str(), name.c_str(), value, static_cast<std::size_t>(size), 0);
}

bool copyData(int source, int target) {
  off_t from = 0;
  ssize_t count = 0;
  do
    count = ::copy_file_range(source, &from, target, nullptr, 1 << 20, 0);
  while (count > 0);
  return count == 0;
}

} // namespace

int fcopyfile(int source, int target, copyfile_state_t, std::uint32_t flags) {
  if (flags & COPYFILE_ACL)
    for (const std::string &name : namesOf(target, COPYFILE_ACL))
      if (::removexattr(pathOf(target).c_str(), name.c_str()) != 0)
        return -1;
  for (const std::string &name : namesOf(source, flags))
    if (copyAttribute(source, target, name) != 0)
      return -1;
  return 0;
}

// A clone has the data, mode, attributes and flags of the file, but no bits that
// lend an identity.
int fclonefileat(int source, int folder, const char *path, std::uint32_t flags) {
  struct stat file, place;
  if (::fstat(source, &file) != 0 || ::fstat(folder, &place) != 0)
    return -1;
  if (!shim().clones || file.st_dev != place.st_dev || flags != CLONE_NOOWNERCOPY) {
    errno = file.st_dev != place.st_dev ? EXDEV : ENOTSUP;
    return -1;
  }
  int clone = ::openat(folder, path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (clone < 0)
    return -1;
  bool isDone = copyData(source, clone) && fcopyfile(source, clone, nullptr, COPYFILE_XATTR) == 0 &&
                ::fchmod(clone, file.st_mode & 0777) == 0;
  struct stat made;
  isDone = isDone && ::fstat(clone, &made) == 0;
  ::close(clone);
  std::lock_guard lock(kwtest::darwin::shimMutex());
  if (auto other = shim().otherFlags.find(file.st_ino); isDone && other != shim().otherFlags.end())
    shim().otherFlags[made.st_ino] = other->second;
  ++shim().cloned;
  return isDone ? 0 : -1;
}
