// Splitting a path at its last component.
#include "Foundation/Linux/ItemLocation.h"

#include <cerrno>
#include <fcntl.h>

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
  location.parent = Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return location.parent ? 0 : errno;
}

} // namespace NS
