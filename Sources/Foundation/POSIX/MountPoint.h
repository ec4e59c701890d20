// Which mount holds an item.
#pragma once

#include <optional>
#include <string>

namespace NS {

// The mount point of the volume on which the item itself stands, a final link
// not followed. Where a host can mount a folder elsewhere, that counts as a
// volume of its own. Nothing when the
// item cannot be reached, with errno set.
std::optional<std::string> mountPointOfItem(const std::string &path);

} // namespace NS
