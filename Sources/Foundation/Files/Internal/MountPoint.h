// The mount that holds an item.
//
// Thread-safe. Blocks on the disk.
#pragma once

#include <optional>
#include <string>

namespace NS {

// The mount point of the volume of the item itself; does not follow a final
// link. On a host that can mount a folder at a second place, that counts as a
// volume of its own. Empty with errno set when the item cannot be reached.
std::optional<std::string> mountPointOfItem(const std::string &path);

} // namespace NS
