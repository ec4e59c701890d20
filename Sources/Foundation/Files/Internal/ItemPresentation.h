// An item's icon and name as the host shows them to users.
//
// Thread-safe. Blocks on the disk.
#pragma once

#include "Foundation/Files/URL.h"

#include <optional>
#include <string>

namespace NS {

// The names of the item's icon, most specific first. Empty with errno set when
// the item cannot be read.
std::optional<Icon> effectiveIconOfItem(const std::string &path);

// The item's display name, valid UTF-8. Empty with errno set when the item
// cannot be read.
std::optional<std::string> localizedNameOfItem(const std::string &path);

} // namespace NS
