// Copies extended attributes by the paths of the descriptors in /proc, which also
// work for descriptors by O_PATH. An access list is an attribute here.
#include "Foundation/Files/POSIX/AttributeCopy.h"

#include "Foundation/Descriptors/Linux/HandlePath.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <endian.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace NS {
namespace {

constexpr const char *accessList = "system.posix_acl_access";
constexpr std::string_view anyAccessList = "system.posix_acl_";
// These attributes become invalid when the data of a file changes.
constexpr std::array vouchers = {"security.capability", "security.ima", "security.evm"};

// Reads bytes by a call that tells their number when it has no room for them. They
// may grow between the two calls; then it asks again. 0 or an errno value.
template <typename Call> int readGrowing(std::string &bytes, Call call) {
  for (;;) {
    ssize_t size = call(nullptr, std::size_t{0});
    if (size < 0)
      return errno;
    // One byte more, since a size of zero would ask for the length again.
    bytes.resize(static_cast<std::size_t>(size) + 1);
    size = call(bytes.data(), bytes.size());
    if (size >= 0)
      bytes.resize(static_cast<std::size_t>(size));
    if (size >= 0 || errno != ERANGE)
      return size < 0 ? errno : 0;
  }
}

// Reads the names of an item's extended attributes, each ended by a NUL byte.
int listAttributes(const std::string &path, std::string &names) {
  int error = readGrowing(
      names, [&](char *bytes, std::size_t size) { return ::listxattr(path.c_str(), bytes, size); });
  return error == ENOTSUP ? 0 : error;
}

int readAttribute(const std::string &path, const char *name, std::string &value) {
  return readGrowing(value, [&](char *bytes, std::size_t size) {
    return ::getxattr(path.c_str(), name, bytes, size);
  });
}

template <typename Handler> int forEachName(const std::string &names, const Handler &handler) {
  for (std::size_t at = 0; at < names.size(); at += std::string_view(&names[at]).size() + 1)
    if (int error = handler(names.c_str() + at))
      return error;
  return 0;
}

bool holdsName(const std::string &names, std::string_view wanted) {
  return forEachName(names, [&](const char *name) { return name == wanted ? 1 : 0; }) != 0;
}

int copyAttribute(const std::string &source, const std::string &target, const char *name) {
  std::string value;
  int error = readAttribute(source, name, value);
  if (error == 0 && ::setxattr(target.c_str(), name, value.data(), value.size(), 0) != 0)
    error = errno;
  return error;
}

// The grants of an access list, each as three bits.
struct Grants {
  static constexpr unsigned all = ACL_READ | ACL_WRITE | ACL_EXECUTE;
  unsigned group = all;  // of the owning group
  unsigned users = all;  // those that each user in the list has
  unsigned groups = all; // those that each other group in the list has
  unsigned mask = all;   // the upper bound of all of these
};

Grants grantsOf(std::string_view list) {
  Grants grants;
  posix_acl_xattr_entry entry;
  list.remove_prefix(std::min(list.size(), sizeof(posix_acl_xattr_header)));
  for (; list.size() >= sizeof entry; list.remove_prefix(sizeof entry)) {
    list.copy(reinterpret_cast<char *>(&entry), sizeof entry);
    unsigned rights = le16toh(entry.e_perm);
    unsigned tag = le16toh(entry.e_tag);
    if (tag == ACL_GROUP_OBJ)
      grants.group = rights;
    else if (tag == ACL_USER)
      grants.users &= rights;
    else if (tag == ACL_GROUP)
      grants.groups &= rights;
    else if (tag == ACL_MASK)
      grants.mask = rights;
  }
  return grants;
}

// The mode for a copy of the file without its access list, if it has one. Users
// and groups of the list then count as members of the owning group or as others.
// So the mode gives the group and others only the rights that each entry of the
// list has.
mode_t modeWithoutList(const std::string &source, mode_t mode) {
  std::string list;
  int error = readAttribute(source, accessList, list);
  if (error == ENODATA || error == ENOTSUP)
    return mode;
  if (error != 0)
    return mode & ~static_cast<mode_t>(S_IRWXG | S_IRWXO);
  Grants grants = grantsOf(list);
  unsigned group = grants.group & grants.users & grants.mask;
  unsigned others = mode & grants.users & grants.groups & grants.mask & S_IRWXO;
  return (mode & ~static_cast<mode_t>(S_IRWXG | S_IRWXO)) | group << 3 | others;
}

bool isList(const char *name) {
  return std::string_view(name).starts_with(anyAccessList);
}

bool vouchesForData(std::string_view name) {
  return std::find(vouchers.begin(), vouchers.end(), name) != vouchers.end();
}

// Collects the names of the lists that the target has taken over.
int copyAll(const std::string &source, const std::string &target, const std::string &names,
            CopiedData data, mode_t &mode, LeftOut &leftOut, std::string &lists) {
  return forEachName(names, [&](const char *name) {
    if (data == CopiedData::Another && vouchesForData(name))
      return 0;
    int error = copyAttribute(source, target, name);
    if (error == 0 && isList(name))
      lists.append(name, std::string_view(name).size() + 1);
    bool isGone = error == ENODATA;
    if (error == 0 || (!isGone && !mayBeLeftOut(error)))
      return error;
    if (!isGone)
      leftOut.note(std::string("the attribute ") + name, error);
    if (std::string_view(name) == accessList)
      mode = modeWithoutList(source, mode);
    return 0;
  });
}

// A list that the target inherited would grant access that the source denies.
int removeInheritedLists(const std::string &target, const std::string &lists) {
  std::string inherited;
  if (int error = listAttributes(target, inherited))
    return error;
  return forEachName(inherited, [&](const char *name) {
    bool isForeign = isList(name) && !holdsName(lists, name);
    if (!isForeign || ::removexattr(target.c_str(), name) == 0)
      return 0;
    return errno == ENODATA ? 0 : errno;
  });
}

} // namespace

int copyAttributes(int source, int target, CopiedData data, mode_t &mode, LeftOut &leftOut) {
  std::string from = handlePath(source), to = handlePath(target), names, lists;
  int error = listAttributes(from, names);
  if (mayBeLeftOut(error)) {
    // They may include an access list.
    mode = modeWithoutList(from, mode);
    leftOut.note("the attributes", error);
    error = 0;
  }
  if (error == 0)
    error = copyAll(from, to, names, data, mode, leftOut, lists);
  return error != 0 ? error : removeInheritedLists(to, lists);
}

} // namespace NS
