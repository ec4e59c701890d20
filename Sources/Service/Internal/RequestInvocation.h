// Hands a request to the exported object, for every transport.
#pragma once

#include "Service/RequestJournal.h"
#include "Service/XPCListener.h"

#include <memory>

namespace NS {

// Calls the method's invoker, which must not be null. A request that changes
// something is recorded; one that throws has failed; a one-way request that
// returns has an empty reply.
void invokeRequest(const XPCMethod &method, XPCObject &object, const XPCValues &arguments,
                   const XPCReply &reply, XPCRequester requester) noexcept;

// Asks the delegate for its opinion of a new connection. A delegate that is gone
// or throws refuses it.
bool acceptConnection(const std::weak_ptr<XPCListenerDelegate> &delegate, XPCListener &listener,
                      const std::shared_ptr<XPCConnection> &connection) noexcept;

} // namespace NS
