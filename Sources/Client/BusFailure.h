// The meaning of an error of the bus for a request.
#pragma once

#include "Client/ClientError.h"

#include <string>
#include <string_view>

namespace kw {

// The agent went away with the request; the bus itself may have.
bool meansInterrupted(std::string_view errorName);

// Makes the ClientError for an error reply of the agent or the bus.
ClientError errorOfReply(std::string_view errorName, const std::string &text);

} // namespace kw
