// An item addressed by the open folder that holds it and its name there. Every
// operation on trees begins with one. Internal to Foundation.
#pragma once

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <string>

namespace NS {

struct ItemLocation {
  // The folder that holds the item, for calls by descriptor only. The path to it
  // may lead through links.
  Descriptor parent;
  std::string name; // one component, never "", "." or ".."
};

// Ignores trailing slashes, so that "link/" means the link and "file/" the
// file. Returns 0 or an errno value: ENOENT for an empty path, EINVAL for one
// that holds a NUL byte or ends in "." or "..", EBUSY for the root, else the
// error of opening the folder.
int locateItem(const std::string &path, ItemLocation &location);

// The item's absolute path without links, "." and ".." in its folder part, for
// libraries that resolve ".." by text. Returns 0 or an errno value: ESTALE when
// no path leads to the folder any more.
int resolvePath(const ItemLocation &location, std::string &path);

} // namespace NS
