// The one thread that touches the agent's connection to the bus: everybody
// else hands it something to do.
#pragma once

#include "Foundation/Linux/BusConnection.h"
#include "Foundation/Linux/BusMailbox.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

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

  // For the thread itself, and for anyone before start.
  BusConnection &bus() { return connection_; }
  const std::shared_ptr<BusMailbox> &mailbox() { return mailbox_; }

  // Gets every call and signal that arrives.
  using Receiver = std::function<void(BusMessage &message)>;
  // Starts the thread. The lost handler is called on it, at most once, when
  // the bus is gone for good.
  void start(Receiver receiver, std::function<void(const std::string &reason)> lost);
  // Ends the thread and waits for it; what is posted afterwards is dropped.
  // Not on the thread itself.
  void stop();

  // These on the thread itself, or before start.
  // Handles nothing further.
  void stopHandling() { stopping_ = true; }
  // Has it do something later, if it still runs then.
  void callAfter(std::chrono::milliseconds delay, BusMailbox::Work work);
  // Sends a call to the bus itself. Its answer, a reply or a failure, goes to
  // the handler; none comes when the bus is lost first.
  void ask(BusMessage call, Receiver answer);

private:
  using Clock = BusConnection::Clock;

  void loop();
  bool doWhatIsDue();
  bool receiveOne();
  void handle(BusMessage &message);
  void guarded(const std::function<void()> &work);

  BusConnection connection_;
  const std::shared_ptr<BusMailbox> mailbox_;
  std::thread thread_;
  Receiver receiver_;
  bool stopping_ = false;                                    // the thread's own, like
  std::multimap<Clock::time_point, BusMailbox::Work> later_; // what is due when, and
  std::map<std::uint32_t, Receiver> asked_;                  // by serial of the call
};

} // namespace NS
