// Values into the client's messages to the bus, and out of their replies.
#pragma once

#include "Foundation/XPCInterface.h"

#include <vector>

namespace sdbus {
class MethodCall;
class MethodReply;
} // namespace sdbus

namespace kw {

// Throws ClientError of kind BadArgument for what cannot be sent.
void appendArguments(sdbus::MethodCall &request, const NS::XPCValues &arguments);

// Throws ClientError of kind BadReply when the reply does not hold values of
// such kinds. A nil error is the monostate; every string is one.
NS::XPCValues readReply(sdbus::MethodReply &reply, const std::vector<NS::XPCKind> &kinds);

} // namespace kw
