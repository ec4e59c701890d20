// Splits a path at its last component, and makes a path from an open folder.
#include "Foundation/Files/POSIX/ItemLocation.h"

#include "Foundation/Files/POSIX/ItemCalls.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace NS {

int locateItem(const std::string &path, ItemLocation &location) {
  if (path.empty())
    return ENOENT;
  if (path.find('\0') != std::string::npos)
    return EINVAL;
  std::size_t end = path.find_last_not_of('/');
  if (end == std::string::npos)
    return EBUSY;
  std::size_t slash = path.rfind('/', end);
  std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  location.name = path.substr(start, end + 1 - start);
  if (location.name == "." || location.name == "..")
    return EINVAL;
  std::string folder = start == 0 ? "." : path.substr(0, start);
  location.parent = Descriptor(::open(folder.c_str(), itemcalls::placeFlags));
  return location.parent ? 0 : errno;
}

int resolvePath(const ItemLocation &location, std::string &path) {
  std::string folder;
  if (int error = itemcalls::readPath(location.parent.get(), folder))
    return error == ENOENT ? ESTALE : error;
  // The text names another folder, or none, if this one was removed or is
  // outside of this process's root.
  struct stat held, named;
  if (::fstat(location.parent.get(), &held) != 0)
    return errno;
  if (::stat(folder.c_str(), &named) != 0 || held.st_dev != named.st_dev ||
      held.st_ino != named.st_ino)
    return ESTALE;
  path = (folder == "/" ? "" : folder) + "/" + location.name;
  return 0;
}

} // namespace NS
