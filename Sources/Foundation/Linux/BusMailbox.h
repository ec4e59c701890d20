// Work for the thread of the bus. Holders may outlive that thread; what is
// posted then is dropped unseen. Thread-safe.
#pragma once

#include "Foundation/Linux/BusConnection.h"

#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace NS {

class BusMailbox {
public:
  using Work = std::function<void()>;
  using Works = std::list<Work>;

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
  // Woken when there is something to take.
  BusWaker &waker() { return waker_; }

private:
  BusWaker waker_;
  std::mutex mutex_;
  Works work_;
  std::thread::id taker_; // who called take() last
  bool closed_ = false;
};

} // namespace NS
