// A connection to the message bus with one thread of its own that alone
// touches it: everybody else hands that thread something to do.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace sdbus {
class IConnection;
}

namespace NS {

// Work for the thread of the bus. Holders may outlive the connection; what is
// posted then is dropped unseen. Thread-safe.
class BusMailbox {
public:
  using Work = std::function<void()>;
  using Works = std::list<Work>;

  // Raises InternalInconsistencyException when no descriptor is left.
  BusMailbox();
  ~BusMailbox();
  BusMailbox(const BusMailbox &) = delete;
  BusMailbox &operator=(const BusMailbox &) = delete;

  void post(Work work);
  // Takes no memory: for what was made while there was some.
  void post(Works works) noexcept;
  // Does it at once on the thread that takes when nothing waits there, else
  // posts it.
  void doOrPost(Work work);
  // What was posted since the last call, in order.
  Works take();
  // Nothing posted from now on is kept.
  void close();
  // Becomes readable when there is something to take.
  int descriptor() const { return descriptor_; }

private:
  void postLocked(Works &works) noexcept;

  int descriptor_;
  std::mutex mutex_;
  Works work_;
  std::thread::id taker_; // who called take() last
  bool closed_ = false;
};

class BusThread {
public:
  // "system", "session", or an address. Raises InternalInconsistencyException
  // when the bus cannot be reached.
  explicit BusThread(std::string_view bus);
  // Stops the thread.
  ~BusThread();
  BusThread(const BusThread &) = delete;
  BusThread &operator=(const BusThread &) = delete;

  // For the thread of the bus, and for anyone before start.
  sdbus::IConnection &bus() { return *connection_; }
  const std::shared_ptr<BusMailbox> &mailbox() { return mailbox_; }

  // Starts the thread. The lost handler is called on it, at most once, when
  // the bus is gone for good.
  void start(std::function<void(const std::string &reason)> lost);
  // Ends the thread and waits for it; what is posted afterwards is dropped.
  // Not on the thread of the bus itself.
  void stop();
  // On the thread of the bus: handles nothing further.
  void stopHandling() { stopping_ = true; }
  // On the thread of the bus, or before start: has it do something later, if
  // it still runs then.
  void callAfter(std::chrono::milliseconds delay, BusMailbox::Work work);

  // Before start: asks before each call that arrives. One that is not let in
  // is dropped without an answer.
  using CallFilter = std::function<bool(const std::string &sender, const std::string &interface)>;
  void filterCalls(CallFilter filter);

private:
  using Clock = std::chrono::steady_clock;

  void loop();
  bool doWhatIsDue();
  void waitForEvents();
  int timeout(int ofTheBus) const;

  CallFilter filter_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::shared_ptr<BusMailbox> mailbox_;
  std::thread thread_;
  bool stopping_ = false;                                    // the thread's own, like
  std::multimap<Clock::time_point, BusMailbox::Work> later_; // what is due when
};

} // namespace NS
