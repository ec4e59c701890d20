// Each host's Trash. Internal to Foundation.
//
// Thread-safe. Blocks.
#pragma once

#include "Foundation/Base/Error.h"

#include <optional>
#include <string>

namespace NS::host {

// Moves an item to the Trash of the process's user or of the item's volume. The
// resolved path is absolute, without links, "." and ".." in its folder part. On
// failure returns the error, which names the item by the other path, that of the
// request.
std::optional<Error> moveToTrash(const std::string &resolved, const std::string &path);

} // namespace NS::host
