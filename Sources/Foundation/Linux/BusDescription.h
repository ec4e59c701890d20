// What introspection tells of an object, as the bus's own form of XML.
#pragma once

#include "Foundation/XPCInterface.h"

#include <string>
#include <string_view>
#include <vector>

namespace NS {

// The interfaces that every object has.
inline constexpr const char *peerInterface = "org.freedesktop.DBus.Peer";
inline constexpr const char *introspectableInterface = "org.freedesktop.DBus.Introspectable";
inline constexpr const char *propertiesInterface = "org.freedesktop.DBus.Properties";

// Either may be null. More is put in as it is.
std::string busDescription(const XPCInterface *exported, const XPCInterface *remote,
                           std::string_view more);
// Of an object that only leads to the child.
std::string busDescriptionOfParent(std::string_view child);

} // namespace NS
