// The record of each request that changes something, with its requester: one
// entry each. A class, so that a test can read the entries.
//
// Thread-safe.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Protocol/XPCInterface.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace NS {

// The process and user of a client, as the transport vouches for them.
struct XPCRequester {
  std::uint32_t user = 0;   // the effective user of the process
  std::int32_t process = 0; // its identifier
};

struct RequestRecord {
  // Longer texts are cut in the middle.
  static constexpr std::size_t longestText = 4096;

  XPCRequester requester;
  std::string member;
  std::vector<std::string> items; // the request's texts, as the client gave them
  // "done", "refused" by the reply, "failed" without one, or "cut off" by the end
  // of this process.
  std::string outcome;
  std::string reason; // of a refusal or failure, if it has one
  std::chrono::microseconds took{0};
};

class RequestJournal : public SharedInstance<RequestJournal> {
public:
  virtual ~RequestJournal() = default;
  static RequestJournal &real();

  // The host's journal gets an entry with fields; without a journal, the
  // diagnostic log gets a line. May wait for the journal; does not fail.
  virtual void write(const RequestRecord &record) = 0;
};

// A reply that passes its outcome on to the given one and then writes the
// record of the request, which begins now. Made for methods that change
// something, on the thread that handles the request.
XPCReply recordingReply(const XPCMethod &method, const XPCValues &arguments, XPCRequester requester,
                        XPCReply reply);

// Writes the records of all requests under way, for a process that is about to
// end on the calling thread: a request that this thread handles has been done
// thereby, all others are cut off. Waits a second at most for the journal.
void recordRequestsAtEnd() noexcept;

} // namespace NS
