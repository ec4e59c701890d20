// Each host's Trash. Internal to Foundation.
//
// Thread-safe. Blocks.
#pragma once

#include "Foundation/Base/Error.h"

#include <optional>
#include <string>

namespace NS::host {

// Moves the item at an absolute path without links, "." and ".." in its folder
// part to the Trash of the process's user or of the item's volume. Returns the
// error when no Trash can take it, for the item by the path of the request.
std::optional<Error> moveToTrash(const std::string &resolved, const std::string &path);

} // namespace NS::host
