// The object that the platform's transport calls: it turns each message of the
// contract into a request of ours, and the outcome into the call of its block.
#pragma once

#include "Protocol/macOS/XPCProtocols.h"
#include "Service/RequestJournal.h"
#include "Service/XPCConnection.h"

#include <memory>

namespace NS {

// The receiver of the object's requests.
struct XPCExport {
  std::shared_ptr<const XPCInterface> interface;
  std::shared_ptr<XPCObject> object;           // null: every request fails
  std::shared_ptr<XPCConnection> connection{}; // kept as long as the object
  XPCRequester requester;
};

// Its methods return when the request is handled. They call a reply block at
// most once, and not at all when the request fails: the transport tells the
// client that the block was released uncalled. A block may be nil. The platform's
// progress that is current when a message comes can cancel the request.
id<KWPrivilegedOperation> exportedOperations(XPCExport served); // autoreleased

} // namespace NS
