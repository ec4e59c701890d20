// Work for the thread of the bus. Its owners may outlive that thread; the
// mailbox then drops new work. Thread-safe.
#pragma once

#include "Protocol/Linux/BusConnection.h"

#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace NS {

class BusMailbox {
public:
  using Work = std::function<void()>;
  using Works = std::list<Work>;

  // Adds work behind the work that waits, and wakes the taking thread.
  void post(Work work);
  // Needs no memory: the caller allocated the work before.
  void post(Works works) noexcept;
  // Does the work at once when called on the thread that takes and nothing
  // waits there, else posts it.
  void doOrPost(Work work);
  // The work posted since the last call, in order.
  Works take();
  // Drops the work that waits, and all work posted from now on.
  void close();
  // Wakes the taking thread when there is work.
  BusWaker &waker() { return waker_; }

private:
  BusWaker waker_;
  std::mutex mutex_;
  Works work_;
  std::thread::id taker_; // the thread of the last take()
  bool closed_ = false;
};

} // namespace NS
