// How the host shows an item to people.
#pragma once

#include "Foundation/URL.h"

#include <optional>
#include <string>

namespace NS {

// The names of the item's icon, most specific first. Nothing when the item
// cannot be read, with errno set.
std::optional<Icon> effectiveIconOfItem(const std::string &path);

// The item's display name, valid UTF-8. Nothing when the item cannot be read,
// with errno set.
std::optional<std::string> localizedNameOfItem(const std::string &path);

} // namespace NS
