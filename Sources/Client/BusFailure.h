// The meaning of an error of the bus for a request.
#pragma once

#include "Client/ClientError.h"

#include <string>
#include <string_view>

namespace kw {

// Tells whether the error means that the agent, or the bus itself, went away
// with the request.
bool meansInterrupted(std::string_view errorName);

// Makes the ClientError for an error reply of the agent or the bus.
ClientError errorOfReply(std::string_view errorName, const std::string &text);

} // namespace kw
