// The introspection of an object, in the bus's own form of XML.
#pragma once

#include "Protocol/XPCInterface.h"

#include <string>
#include <string_view>
#include <vector>

namespace NS {

// The interfaces that every object has.
inline constexpr const char *peerInterface = "org.freedesktop.DBus.Peer";
inline constexpr const char *introspectableInterface = "org.freedesktop.DBus.Introspectable";
inline constexpr const char *propertiesInterface = "org.freedesktop.DBus.Properties";

// Either interface may be null. Further text is inserted unchanged.
std::string busDescription(const XPCInterface *exported, const XPCInterface *remote,
                           std::string_view more);
// For an object that only leads to the child.
std::string busDescriptionOfParent(std::string_view child);

} // namespace NS
