// Wakes a command that waits: for answers, for paths that were read, and for
// the request to stop.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace kw {

// Thread-safe.
class Alarm {
public:
  // Has the waiting thread test its condition again.
  void ring() {
    std::lock_guard lock(mutex_);
    changed_.notify_all();
  }

  // Blocks until the condition holds. It is tested with each ring, and must not
  // ring itself.
  template <typename Condition> void waitUntil(Condition condition) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return condition(); });
  }

  // Asks the command to stop because of a signal. False when it cannot heed
  // that: nothing is under way that would have to be stopped, or it has been
  // asked before. The caller then ends the process.
  bool stop(int signal) {
    std::lock_guard lock(mutex_);
    if (heeding_ == 0 || stopSignal_ != 0)
      return false;
    stopSignal_ = signal;
    changed_.notify_all();
    return true;
  }
  // The signal given to stop(), 0 before that. Conditions may call it.
  int stopSignal() const { return stopSignal_; }

  // While one exists, the command heeds stop().
  class Heeding {
  public:
    explicit Heeding(Alarm &alarm) : alarm_(alarm) { alarm_.change(1); }
    ~Heeding() { alarm_.change(-1); }
    Heeding(const Heeding &) = delete;
    Heeding &operator=(const Heeding &) = delete;

  private:
    Alarm &alarm_;
  };

private:
  void change(int by) {
    std::lock_guard lock(mutex_);
    heeding_ += by;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  int heeding_ = 0;
  std::atomic<int> stopSignal_{0};
};

} // namespace kw
