// The way out to the clients: sends a message at once, or keeps it until its
// client has read enough of the earlier ones.
//
// All members are for the thread of the bus. The message names its receiver.
#pragma once

#include "Service/Linux/BusStatistics.h"
#include "Service/Linux/BusThread.h"
#include "Service/Linux/UnreadMessages.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace NS {

class BusOutbox {
public:
  // Called when a client's messages begin to wait, and when they no longer do.
  // Must not throw.
  using Listener = std::function<void(const std::string &client, bool waits)>;
  // Makes a message for the client of at least so many bytes and without
  // information, to find out whether it reads.
  using TrialMaker = std::function<BusMessage(const std::string &client, std::size_t bytes)>;

  // The thread must outlive it.
  BusOutbox(BusThread &thread, Listener listener, TrialMaker makeTrial);
  BusOutbox(const BusOutbox &) = delete;
  BusOutbox &operator=(const BusOutbox &) = delete;

  // Sends messages to one client in order. When other clients leave no room for
  // the message for 20 s, sends the small one instead; without a small one the
  // message waits on.
  void send(BusMessage message, BusMessage small = {});
  // For a short answer, which may overtake others. Dropped only after very many
  // that the client has not read, so that no more need be made.
  void sendShort(BusMessage message);
  // Tells whether sendShort would send or keep a short answer for the client.
  bool takesShort(std::string_view client) const;
  // For a message that is better lost than kept when the client does not read.
  void sendOrDrop(BusMessage message);
  bool isWaiting(std::string_view client) const { return waiting_.contains(client); }
  // Drops the waiting messages of a client that is gone.
  void forget(std::string_view client);

private:
  using Kind = UnreadMessages::Kind;
  using Room = UnreadMessages::Room;

  struct Waiting {
    BusMessage message;
    BusMessage small;
    Kind kind = Kind::Whole;
    BusConnection::Clock::time_point since{};
    int looks = 0; // answers of the bus about the client since then
  };
  using Queue = std::deque<Waiting>;
  static bool hasRoomForShort(const Queue &queue, std::size_t bytes);

  void post(BusMessage &message, BusMessage &small, Kind kind);
  bool keep(const std::string &client, Waiting &made);
  Room roomFor(const std::string &client, const Waiting &waiting) const;
  void dispatch(const std::string &client, BusMessage &message);
  void askWhereWorth();
  void learnLimits();
  void answered(const std::string &client, BusStatistics::Answer answer, std::size_t bytes);
  void sendWhatFits() noexcept;
  void sendWhatFits(const std::string &client, Queue &queue);
  bool isOverdue(const std::string &client, const Waiting &waiting) const;
  void askAgainLater() noexcept;

  BusThread &thread_;
  const Listener listener_;
  const TrialMaker makeTrial_;
  UnreadMessages unread_;
  BusStatistics statistics_;
  std::map<std::string, Queue, std::less<>> waiting_; // none of them empty
  bool hasLimitsOfUsers_ = false;
};

} // namespace NS
