// The meaning of an error of macOS's transport for a request.
#pragma once

#include "Client/ClientError.h"

#include <cstdint>
#include <string>

namespace kw {

// Codes of CocoaErrorDomain; the numbers are the platform's own.
enum TransportErrorCode : std::int64_t {
  TransportInterruptedError = 4097,  // the agent ended
  TransportInvalidError = 4099,      // there is no agent, or no right to call it
  TransportReplyInvalidError = 4101, // the reply was not understood, or never sent
};

ClientError errorOfTransport(std::int64_t code, const std::string &text);

} // namespace kw
