// Values on the bus: which signature each kind has, and the way in and out of
// a message.
//
// A nil string travels as an empty one, a nil array as an empty one, a nil
// error as one with an empty domain, whose code is 0 and user info empty.
#pragma once

#include "Foundation/Linux/BusText.h"
#include "Foundation/Linux/BusValues.h"
#include "Foundation/XPCInterface.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace sdbus {
class Message;
}

namespace NS {

// Far below what the strictest usual bus lets through: a sender of a larger
// message loses its connection, and no client may bring that upon the agent.
inline constexpr std::size_t maximumMessageBytes = std::size_t{16} << 20;

std::vector<std::string> parameterNames(const std::vector<XPCParameter> &parameters);

// The bytes of text in the values, about what they take in a message.
std::size_t textBytes(const XPCValues &values);

// Throws sdbus::Error when the message does not hold such values.
XPCValues readValues(sdbus::Message &message, const std::vector<XPCParameter> &parameters);
// Throws sdbus::Error, and std::invalid_argument when the values are not as
// many or of the kinds that the parameters say.
void appendValues(sdbus::Message &message, const std::vector<XPCParameter> &parameters,
                  const XPCValues &values);

// The values with user info left out of their errors where the whole would be
// too large for a message.
XPCValues fittedValues(XPCValues values);

} // namespace NS
