// What the bus still keeps for clients that have not read it yet, and how much
// more each may be sent.
//
// A message bus stops reading from a sender of whose messages it keeps too
// much, whoever they are for. Without a limit of its own, one client that asks
// and never reads would so silence the agent for all of them. Here stand the
// rules alone; BusOutbox sends, and asks the bus.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace NS {

// In bytes, each message with what a bus may add to it. As they are, all together
// stay below the 127 MiB that dbus-daemon keeps of one sender's messages.
struct UnreadLimits {
  // For dbus-broker, which keeps account of users: 512 MiB for all clients of
  // one user, the agent among them when it is that user. It counts more for a
  // message than the message has, and so refusals need more room there.
  static UnreadLimits forAccountsOfUsers();

  // What the bus counts for a message at most beyond its size: dbus-broker's
  // version 33 counts 1,384 bytes, dbus-daemon none, as its answers show.
  std::size_t perMessage = 1536;
  // Of one client, unless it has nothing unread: then one whole message more.
  std::size_t perClient = std::size_t{8} << 20;
  // The same with short answers, such as refusals: a client that reads late
  // shall find them all.
  std::size_t perClientWithShort = std::size_t{32} << 20;
  // Each client may always be sent so much, whatever the others leave unread.
  // It does not weigh on the bus: the client's socket takes it.
  std::size_t guaranteed = std::size_t{64} << 10;
  // Of all clients together, so long as the next message goes to a client of
  // which nobody knows whether it reads at all.
  std::size_t altogether = std::size_t{32} << 20;
  // The same for a client that has been seen to read.
  std::size_t altogetherForReaders = std::size_t{112} << 20;
  // One whole message: what is left of the latter to clients that have nothing
  // unread.
  std::size_t reserve = (std::size_t{16} << 20) + 8192;
  // A client that has read so much has not just left it all in its socket.
  std::size_t proof = std::size_t{256} << 10;
};

// Not thread-safe.
class UnreadMessages {
public:
  explicit UnreadMessages(UnreadLimits limits) : limits_(limits) {}
  void setLimits(const UnreadLimits &limits);
  const UnreadLimits &limits() const { return limits_; }

  enum class Kind { Whole, Short };
  enum class Room {
    Enough,
    None,   // until the client, or the others, have read more
    Unknown // until the client has shown that it reads
  };
  // Whether a message of so many bytes may be sent to the client now.
  Room roomFor(std::string_view client, std::size_t bytes, Kind kind) const;
  // Whether a message as large as the proof may be sent to find out whether the
  // client reads. It must have nothing unread.
  bool mayTry(std::string_view client) const;
  void sent(const std::string &client, std::size_t bytes);

  // Clients about whom the bus should be asked now: well before a limit.
  bool isWorthAsking(std::string_view client) const;
  std::vector<std::string> worthAsking() const;
  // The bus was asked about the client, behind all that was sent so far.
  void asked(const std::string &client);
  // It keeps so many bytes for the client, whoever sent them; what was sent
  // since the question comes on top.
  void measured(const std::string &client, std::size_t bytes);
  // It gave no figure; the next question is free.
  void notMeasured(std::string_view client);
  bool isAsked(std::string_view client) const;

  void forget(std::string_view client);

  // At most so many bytes are unread: by one client, and by all that leave more
  // than is guaranteed.
  std::size_t ofClient(std::string_view client) const;
  std::size_t altogether() const { return altogether_; }
  bool hasShownThatItReads(std::string_view client) const;

private:
  struct Account {
    std::size_t unread = 0; // at most: what the bus said and what was sent since
    std::size_t sinceQuestion = 0;
    bool isAsked = false;
    std::size_t sentAltogether = 0; // without what the bus adds
    std::size_t read = 0;           // at least, of what was sent altogether
  };

  const Account *find(std::string_view client) const;
  std::size_t weight(std::size_t unread) const;
  void setUnread(Account &account, std::size_t unread);
  bool isWorthAsking(const Account &account) const;

  UnreadLimits limits_;
  std::map<std::string, Account, std::less<>> accounts_; // by unique bus name
  std::size_t altogether_ = 0;                           // their weight
};

} // namespace NS
