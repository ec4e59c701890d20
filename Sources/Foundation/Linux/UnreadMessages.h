// What the bus still keeps for clients that have not read it, and how much
// more each may be sent.
//
// A message bus stops reading from a sender of whose messages it keeps too
// much, whoever they are for. Without a limit of its own, one client that asks
// and never reads would so silence the agent for all of them.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace NS {

// In bytes. The whole stays below the 127 MiB that the strictest usual bus
// keeps of one sender's messages.
struct UnreadLimits {
  std::size_t perClient = std::size_t{8} << 20;
  std::size_t altogether = std::size_t{96} << 20;
  // Refusals are short, and a client that reads late shall find them all.
  std::size_t perClientWithRefusals = std::size_t{32} << 20;
  // Each client may always be sent so much, whatever the others leave unread.
  std::size_t guaranteed = std::size_t{64} << 10;
};

// Not thread-safe.
class UnreadMessages {
public:
  explicit UnreadMessages(UnreadLimits limits) : limits_(limits) {}

  // Whether a message of so many bytes may be sent to the client now. One that
  // has read everything may be sent a message larger than its limit.
  bool hasRoom(const std::string &client, std::size_t bytes) const;
  bool hasRoomForRefusal(const std::string &client, std::size_t bytes) const;
  void sent(const std::string &client, std::size_t bytes);
  // What the bus says it keeps for the client after all that was sent to it.
  void measured(const std::string &client, std::size_t bytes);
  void forget(const std::string &client);

  std::size_t ofClient(const std::string &client) const;
  std::size_t altogether() const { return altogether_; }
  // Those whose count is worth measuring anew when the whole is too much.
  std::vector<std::string> clientsWithMoreThanGuaranteed() const;

private:
  bool hasRoomBelow(std::size_t limit, const std::string &client, std::size_t bytes) const;

  UnreadLimits limits_;
  std::map<std::string, std::size_t> unread_; // by unique bus name
  std::size_t altogether_ = 0;                // their sum
};

} // namespace NS
