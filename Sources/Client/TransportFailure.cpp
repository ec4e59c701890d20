// Sorts the transport's errors by their meaning for the request.
#include "Client/TransportFailure.h"

namespace kw {

ClientError errorOfTransport(std::int64_t code, const std::string &text) {
  using Kind = ClientError::Kind;
  switch (code) {
  case TransportInterruptedError:
    return {Kind::Interrupted, "NSXPCConnectionInterrupted", text};
  case TransportInvalidError:
    return {Kind::Unreachable, "NSXPCConnectionInvalid", text};
  case TransportReplyInvalidError:
    return {Kind::BadReply, "NSXPCConnectionReplyInvalid", text};
  default: // it may have come in the middle of the work
    return {Kind::Refused, "NSCocoaErrorDomain " + std::to_string(code), text,
            ClientError::Effect::Unknown};
  }
}

} // namespace kw
