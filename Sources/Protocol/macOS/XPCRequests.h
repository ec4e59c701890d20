// A client's requests as messages to the proxy of the agent's object.
#pragma once

#include "Protocol/XPCInterface.h"
#include "Protocol/macOS/XPCProtocols.h"

#include <functional>
#include <string>

namespace NS {

// Takes the values of a reply, on a thread of the transport. A nil text arrives
// as empty text, a nil error as the monostate.
using XPCReplyReceiver = std::function<void(XPCValues values)>;

// Whether all arguments are texts, or arrays of them, of UTF-8 without NUL.
bool canBeSent(const XPCValues &arguments);

// Sends the message whose member this is. False, and nothing is sent, when there
// is none or the arguments are not its. The transport lets the receiver go
// uncalled when no reply comes.
bool sendRequest(id<KWPrivilegedOperation> agent, const std::string &member,
                 const XPCValues &arguments, XPCReplyReceiver receiver);

// The client's own object, which takes the progress of tools on a thread of the
// transport; autoreleased.
id<KWPrivilegedOperationProgress>
progressReceiver(std::function<void(const std::string &chunk)> receiver);

} // namespace NS
