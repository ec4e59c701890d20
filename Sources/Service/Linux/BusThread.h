// The one thread that uses the agent's connection to the bus. All other threads
// pass it work.
#pragma once

#include "Protocol/Linux/BusConnection.h"
#include "Service/Linux/BusMailbox.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace NS {

class BusThread {
public:
  // "system", "session", or an address. Raises InternalInconsistencyException
  // when the bus cannot be reached.
  explicit BusThread(const std::string &bus);
  // Stops the thread.
  ~BusThread();
  BusThread(const BusThread &) = delete;
  BusThread &operator=(const BusThread &) = delete;

  // For the thread itself, and for any thread before start.
  BusConnection &bus() { return connection_; }
  const std::shared_ptr<BusMailbox> &mailbox() { return mailbox_; }

  // Gets every call and signal that arrives.
  using Receiver = std::function<void(BusMessage &message)>;
  // Starts the thread. The lost handler is called on it, at most once, when
  // the bus is gone for good.
  void start(Receiver receiver, std::function<void(const std::string &reason)> lost);
  // Ends the thread and waits for it; drops work posted afterwards. Do not call
  // it on the thread itself.
  void stop();

  // Call these on the thread itself, or before start. Handles no further
  // message.
  void stopHandling() { stopping_ = true; }
  // Does the work later, if the thread still runs then.
  void callAfter(std::chrono::milliseconds delay, BusMailbox::Work work);
  // Adds a chore: work that the thread does whenever doChoresAfter() asks for
  // it, such as trying again what failed.
  void addChore(BusMailbox::Work work) { chores_.push_back(std::move(work)); }
  // Has all chores done once after the delay; when they are due at some time
  // already, that time stays. Needs no memory, so that it works when memory has run out.
  void doChoresAfter(std::chrono::milliseconds delay) noexcept;
  // Sends a call to the bus itself. Its answer, a reply or a failure, goes to
  // the handler; none comes when the bus is lost first.
  void ask(BusMessage call, Receiver answer);

private:
  using Clock = BusConnection::Clock;

  void loop();
  bool doWhatIsDue();
  std::optional<Clock::time_point> nextDue() const;
  bool receiveOne();
  void handle(BusMessage &message);
  void guarded(const std::function<void()> &work);

  BusConnection connection_;
  const std::shared_ptr<BusMailbox> mailbox_;
  std::thread thread_;
  Receiver receiver_;
  bool stopping_ = false;                                    // only the thread uses these
  std::multimap<Clock::time_point, BusMailbox::Work> later_; // work by its due time
  std::map<std::uint32_t, Receiver> asked_;                  // by serial of the call
  std::vector<BusMailbox::Work> chores_;
  std::optional<Clock::time_point> choresDue_;
};

} // namespace NS
