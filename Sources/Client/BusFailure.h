// What an error of the bus means for a request.
#pragma once

#include "Client/ClientError.h"

#include <string>
#include <string_view>

namespace kw {

// The agent went away with the request; the bus itself may have.
bool meansInterrupted(std::string_view errorName);

// Of an error that the agent or the bus answered with.
ClientError errorOfReply(std::string_view errorName, const std::string &text);

} // namespace kw
