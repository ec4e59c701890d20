// Attribute records as the manual pages of getattrlist and getattrlistbulk
// describe them, and the names of extended attributes.
#include "Darwin/Headers/sys/attr.h"
#include "Darwin/Shim.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace kwtest::darwin {
namespace {

struct Item {
  std::string name;
  bool isReadable = true;
  struct stat status = {};
};

std::uint32_t objectType(mode_t mode) {
  switch (mode & S_IFMT) {
  case S_IFREG:
    return 1;
  case S_IFDIR:
    return 2;
  case S_IFBLK:
    return 3;
  case S_IFCHR:
    return 4;
  case S_IFLNK:
    return 5;
  case S_IFSOCK:
    return 6;
  default:
    return 7;
  }
}

template <typename Value> void append(std::string &record, Value value) {
  record.append(reinterpret_cast<const char *>(&value), sizeof value);
}

// The fixed part in the order of the attributes' bits, then the name. File
// attributes are a folder's only where invalid ones are packed.
std::string recordOf(const Item &item, const attrlist &list, bool packsInvalid) {
  bool isFolder = S_ISDIR(item.status.st_mode);
  attribute_set_t given = {list.commonattr & ~ATTR_CMN_ERROR, 0, 0, isFolder ? 0 : list.fileattr,
                           0};
  if (!item.isReadable)
    given = {ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_ERROR | ATTR_CMN_NAME, 0, 0, 0, 0};
  std::string record(4, '\0');
  if (list.commonattr & ATTR_CMN_RETURNED_ATTRS)
    append(record, given);
  if (!item.isReadable)
    append(record, std::uint32_t{EIO});
  std::size_t reference = record.size();
  if (given.commonattr & ATTR_CMN_NAME)
    append(record, attrreference_t{0, static_cast<std::uint32_t>(item.name.size() + 1)});
  if (given.commonattr & ATTR_CMN_OBJTYPE)
    append(record, objectType(item.status.st_mode));
  std::uint32_t file = packsInvalid ? list.fileattr : given.fileattr;
  if (file & ATTR_FILE_TOTALSIZE)
    append(record, isFolder ? std::uint64_t{0} : static_cast<std::uint64_t>(item.status.st_size));
  if (file & ATTR_FILE_IOBLOCKSIZE)
    append(record,
           isFolder ? std::uint32_t{0} : static_cast<std::uint32_t>(item.status.st_blksize));
  if (given.commonattr & ATTR_CMN_NAME) {
    auto offset = static_cast<std::int32_t>(record.size() - reference);
    std::memcpy(record.data() + reference, &offset, sizeof offset);
    record.append(item.name).append(4 - item.name.size() % 4, '\0');
  }
  auto length = static_cast<std::uint32_t>(record.size());
  std::memcpy(record.data(), &length, sizeof length);
  return record;
}

// Sorted by name, so that the descriptor's offset can count them.
std::vector<Item> itemsOf(int folder) {
  std::vector<Item> items;
  int own = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR *listing = own < 0 ? nullptr : ::fdopendir(own);
  if (!listing)
    return items;
  while (const dirent *entry = ::readdir(listing)) {
    Item item{entry->d_name, !shim().unreadable.contains(entry->d_name)};
    if (item.name == "." || item.name == ".." ||
        ::fstatat(folder, entry->d_name, &item.status, AT_SYMLINK_NOFOLLOW) != 0)
      continue;
    if (auto other = shim().names.find(item.name); other != shim().names.end())
      item.name = other->second;
    items.push_back(std::move(item));
  }
  ::closedir(listing);
  std::sort(items.begin(), items.end(),
            [](const Item &one, const Item &other) { return one.name < other.name; });
  return items;
}

} // namespace
} // namespace kwtest::darwin

using namespace kwtest::darwin;

int getattrlist(const char *path, void *list, void *buffer, std::size_t size, unsigned options) {
  Item item;
  int links = options & FSOPT_NOFOLLOW ? AT_SYMLINK_NOFOLLOW : 0;
  if (::fstatat(AT_FDCWD, path, &item.status, links) != 0)
    return -1;
  std::string record =
      recordOf(item, *static_cast<const attrlist *>(list), (options & FSOPT_PACK_INVAL_ATTRS) != 0);
  // A buffer that is too short is filled as far as it goes.
  std::memcpy(buffer, record.data(), std::min(size, record.size()));
  return 0;
}

int getattrlistbulk(int folder, void *list, void *buffer, std::size_t size, std::uint64_t) {
  const auto &wanted = *static_cast<const attrlist *>(list);
  constexpr std::uint32_t required = ATTR_CMN_NAME | ATTR_CMN_RETURNED_ATTRS;
  off_t next = ::lseek(folder, 0, SEEK_CUR);
  if (next < 0 || (wanted.commonattr & required) != required) {
    errno = next < 0 ? errno : EINVAL;
    return -1;
  }
  shim().bulkSizes.push_back(size);
  if (!shim().bulkErrors.empty()) {
    errno = shim().bulkErrors.front();
    shim().bulkErrors.erase(shim().bulkErrors.begin());
    return -1;
  }
  std::vector<Item> items = itemsOf(folder);
  int count = 0;
  for (auto *at = static_cast<char *>(buffer); next < static_cast<off_t>(items.size()); ++next) {
    std::string record = recordOf(items[static_cast<std::size_t>(next)], wanted, false);
    if (record.size() > size)
      break;
    at = std::copy(record.begin(), record.end(), at);
    size -= record.size();
    ++count;
  }
  if (count == 0 && next < static_cast<off_t>(items.size())) {
    errno = ERANGE;
    return -1;
  }
  ::lseek(folder, next, SEEK_SET);
  return count;
}

// The names of this host's user name space, without its prefix.
extern "C" ssize_t darwin_listxattr(const char *path, char *names, size_t size, int options) {
  constexpr std::string_view prefix = "user.";
  char all[4096];
  bool follows = (options & 1) == 0;
  ssize_t length =
      follows ? ::listxattr(path, all, sizeof all) : ::llistxattr(path, all, sizeof all);
  std::string kept;
  for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(all + at)) + 1)
    if (std::string_view name(all + at); name.starts_with(prefix))
      kept.append(name.substr(prefix.size())).append(1, '\0');
  if (length < 0 || (names && kept.size() > size)) {
    errno = length < 0 ? errno : ERANGE;
    return -1;
  }
  if (names)
    kept.copy(names, kept.size());
  return static_cast<ssize_t>(kept.size());
}
