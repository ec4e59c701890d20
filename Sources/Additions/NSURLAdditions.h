// Conveniences of file URLs: what is on disk, without the error plumbing.
//
// May be called from any thread; all but isInTranslocationFolder ask the file
// system.
#pragma once

#include "Foundation/URL.h"

#include <optional>
#include <string>

namespace kw {

// The same path as a new URL that ends in a slash when a folder stands there
// now, and in none otherwise.
NS::URL fileURLWithFixedTrailingSlash(const NS::URL &receiver);

// A resource value; nothing on an error, which is logged.
std::optional<NS::URLResourceValue> resourceForKey(const NS::URL &receiver, NS::URLResourceKey key);
// The item's icon as people see it, and its display name in their language.
std::optional<NS::Icon> icon(const NS::URL &receiver);
std::optional<std::string> name(const NS::URL &receiver);

// Whether the path looks like one from which the system runs its own copy of a
// quarantined application: it holds "/private/var/folders" and
// "AppTranslocation", wherever they stand.
bool isInTranslocationFolder(const NS::URL &receiver);

} // namespace kw
