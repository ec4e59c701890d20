// Values in messages of the bus: the signature of each kind, and its writing
// and reading.
//
// A nil string travels as an empty one, a nil array as an empty one. An error
// travels as domain, code and user info, its cause as another such structure
// within the user info; an empty domain is a nil error.
#pragma once

#include "Protocol/Linux/BusMessage.h"
#include "Protocol/XPCInterface.h"

#include <cstddef>
#include <string>
#include <vector>

namespace NS {

std::string busSignature(const std::vector<XPCParameter> &parameters);

// Raise BusError when the message does not hold such values, in this order; a
// message may hold more. Every string and array is set, a nil error is the
// monostate.
XPCValue readValue(BusMessage &message, XPCKind kind);
XPCValues readValues(BusMessage &message, const std::vector<XPCKind> &kinds);
XPCValues readValues(BusMessage &message, const std::vector<XPCParameter> &parameters);

// Raise BusMessageTooLarge, and std::invalid_argument when a value is not of
// the kind.
void writeValue(BusMessage &message, XPCKind kind, const XPCValue &value);
void writeValues(BusMessage &message, const std::vector<XPCParameter> &parameters,
                 const XPCValues &values);

// The approximate memory of the arguments.
std::size_t memoryOf(const XPCValues &arguments);

// The values without the user info of their errors, for a reply that is too
// large for a message.
XPCValues valuesWithoutUserInfo(XPCValues values);

} // namespace NS
