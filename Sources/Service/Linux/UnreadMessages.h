// The bytes that the bus still keeps for clients that have not read them, and
// the bytes that each client may still be sent.
//
// A message bus stops reading from a sender of which it keeps too many
// messages, for any receivers. Without a limit of its own, one client that asks
// and never reads would silence the agent for all. This class has only the
// rules; BusOutbox sends, and asks the bus.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace NS {

// In bytes, each message with the bus's overhead. With these values all
// together stay below the 127 MiB that dbus-daemon keeps of one sender's
// messages.
struct UnreadLimits {
  // For dbus-broker, which keeps account of users: 512 MiB for all clients of
  // one user, the agent among them when it is that user. It counts more bytes
  // for a message than the message has, so refusals need more room there.
  static UnreadLimits forAccountsOfUsers();

  // The most that the bus counts for a message beyond its size: dbus-broker's
  // version 33 counts 1,384 bytes, dbus-daemon none, as their answers show.
  std::size_t perMessage = 1536;
  // For one client, unless it has nothing unread: then one whole message more.
  std::size_t perClient = std::size_t{8} << 20;
  // The same with short answers, such as refusals, so that a client that reads
  // late finds all of them.
  std::size_t perClientWithShort = std::size_t{32} << 20;
  // Each client may always be sent so much, however much the others leave
  // unread. It takes no memory of the bus, since the client's socket holds it.
  std::size_t guaranteed = std::size_t{64} << 10;
  // For all clients together, while the next message goes to a client that has
  // not yet been seen reading.
  std::size_t altogether = std::size_t{32} << 20;
  // The same for a client that has been seen to read.
  std::size_t altogetherForReaders = std::size_t{112} << 20;
  // One whole message: the part of the latter that is kept for clients that
  // have nothing unread.
  std::size_t reserve = (std::size_t{16} << 20) + 8192;
  // A client that has read so much cannot have left all of it in its socket.
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
  // Tells whether a message of so many bytes may be sent to the client now.
  Room roomFor(std::string_view client, std::size_t bytes, Kind kind) const;
  // Tells whether a message as large as the proof may be sent to find out
  // whether the client reads. It must have nothing unread.
  bool mayTry(std::string_view client) const;
  void sent(const std::string &client, std::size_t bytes);

  // Tells whether to ask the bus about the client now: well before a limit.
  bool isWorthAsking(std::string_view client) const;
  std::vector<std::string> worthAsking() const;
  // The agent has asked the bus about the client, after all messages sent so
  // far.
  void asked(const std::string &client);
  // The bus keeps so many bytes for the client, from all senders; messages sent
  // since the question come on top.
  void measured(const std::string &client, std::size_t bytes);
  // The bus gave no figure; the next question may come at once.
  void notMeasured(std::string_view client);
  bool isAsked(std::string_view client) const;

  void forget(std::string_view client);

  // The most bytes that may be unread: by one client, and by all clients with
  // more than the guaranteed amount.
  std::size_t ofClient(std::string_view client) const;
  std::size_t altogether() const { return altogether_; }
  bool hasShownThatItReads(std::string_view client) const;

private:
  struct Account {
    std::size_t unread = 0; // at most: the bus's figure and the messages sent since
    std::size_t sinceQuestion = 0;
    bool isAsked = false;
    std::size_t sentAltogether = 0; // without the bus's overhead
    std::size_t read = 0;           // at least, of all bytes sent
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
