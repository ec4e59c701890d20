// Conveniences of file URLs, without error slots.
//
// Any thread may call them; all but isInTranslocationFolder ask the file
// system.
#pragma once

#include "Foundation/Files/URL.h"

#include <optional>
#include <string>

namespace kw {

// Returns the same path as a new URL, which ends in a slash exactly when the
// path is now that of a folder.
NS::URL fileURLWithFixedTrailingSlash(const NS::URL &receiver);

// Returns a resource value; on an error logs it and returns an empty optional.
std::optional<NS::URLResourceValue> resourceForKey(const NS::URL &receiver, NS::URLResourceKey key);
// The item's icon and its display name as shown to the user.
std::optional<NS::Icon> icon(const NS::URL &receiver);
std::optional<std::string> name(const NS::URL &receiver);

// Tells whether the path looks like one from which the system runs its own copy
// of a quarantined application: it holds "/private/var/folders" and
// "AppTranslocation" at any place.
bool isInTranslocationFolder(const NS::URL &receiver);

} // namespace kw
