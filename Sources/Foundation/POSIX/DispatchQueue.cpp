// The background queue: threads made as blocks arrive, kept for a while when
// there is nothing to do, never more than a blocked crowd is worth.
#include "Foundation/Dispatch.h"

#include "Foundation/Log.h"
#include "Foundation/SharedInstance.h"

#include <condition_variable>
#include <deque>
#include <system_error>
#include <thread>

namespace NS {
namespace {

// Blocks may wait for one another or for a slow disk; past this many at a
// time the next one waits its turn.
constexpr std::size_t mostThreads = 64;
constexpr std::chrono::seconds idleLife{15};

void runGuarded(const std::function<void()> &block) {
  try {
    block();
  } catch (const std::exception &exception) {
    Log("A background block raised: %@", exception.what());
  } catch (...) {
    Log("A background block raised something unknown");
  }
}

class ThreadPool final : public DispatchQueue {
public:
  void async(std::function<void()> block) override {
    std::lock_guard lock(mutex_);
    blocks_.push_back(std::move(block));
    if (idle_ >= blocks_.size())
      arrived_.notify_one();
    else if (threads_ < mostThreads)
      addThread();
  }

private:
  // With the mutex held.
  void addThread() {
    try {
      std::thread([this] { work(); }).detach();
      ++threads_;
    } catch (const std::system_error &error) {
      // The threads there are will come to it.
      if (threads_ > 0)
        return;
      blocks_.pop_back();
      throw Exception(InternalInconsistencyException, error.what());
    }
  }

  void work() {
    std::unique_lock lock(mutex_);
    while (waitForBlock(lock)) {
      std::function<void()> block = std::move(blocks_.front());
      blocks_.pop_front();
      lock.unlock();
      runGuarded(block);
      // What the block holds may run code of its own when it goes.
      block = nullptr;
      lock.lock();
    }
    --threads_;
  }

  bool waitForBlock(std::unique_lock<std::mutex> &lock) {
    ++idle_;
    bool found = arrived_.wait_for(lock, idleLife, [this] { return !blocks_.empty(); });
    --idle_;
    return found;
  }

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::function<void()>> blocks_;
  std::size_t threads_ = 0;
  std::size_t idle_ = 0; // waiting for a block, or notified and not yet awake
};

SharedInstance<DispatchQueue> &instance() {
  // Never destroyed: its threads outlive the end of main.
  static auto *real = new ThreadPool;
  static SharedInstance<DispatchQueue> shared(*real);
  return shared;
}

} // namespace

DispatchQueue &DispatchQueue::backgroundQueue() {
  return instance().get();
}

DispatchQueue *DispatchQueue::exchangeShared(DispatchQueue *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
