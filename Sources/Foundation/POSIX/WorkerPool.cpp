// An elastic pool of detached threads around one queue.
#include "Foundation/POSIX/WorkerPool.h"

#include "Foundation/Log.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace NS {

// Shared with the threads, which may outlive the pool.
struct WorkerPool::State {
  State(std::size_t limit, std::chrono::milliseconds idle) : threadLimit(limit), idleTime(idle) {}

  const std::size_t threadLimit;
  const std::chrono::milliseconds idleTime;
  std::mutex mutex;
  std::condition_variable workArrived;
  std::deque<std::function<void()>> work;
  std::size_t threads = 1;     // the constructor's
  std::size_t idleThreads = 1; // from a thread's start until it takes work
  bool closed = false;
};

WorkerPool::WorkerPool(std::size_t threadLimit, std::chrono::milliseconds idleTime)
    : state_(std::make_shared<State>(threadLimit, idleTime)) {
  std::thread([state = state_] { workOn(state); }).detach();
}

WorkerPool::~WorkerPool() {
  std::lock_guard lock(state_->mutex);
  state_->closed = true;
  state_->workArrived.notify_all();
}

void WorkerPool::submit(std::function<void()> work) {
  std::lock_guard lock(state_->mutex);
  state_->work.push_back(std::move(work));
  if (state_->idleThreads >= state_->work.size() || state_->threads >= state_->threadLimit) {
    state_->workArrived.notify_one();
    return;
  }
  try {
    std::thread([state = state_] { workOn(state); }).detach();
    ++state_->threads;
    ++state_->idleThreads;
  } catch (const std::system_error &error) {
    // The work stays queued for the threads there are.
    Log("No further worker thread: %@", error.what());
  } catch (const std::bad_alloc &) { // the same; nor is there any for a message
  }
}

std::size_t WorkerPool::threadCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->threads;
}

std::size_t WorkerPool::idleThreadCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->idleThreads;
}

void WorkerPool::workOn(const std::shared_ptr<State> &state) {
  std::unique_lock lock(state->mutex);
  while (true) {
    state->workArrived.wait_for(lock, state->idleTime,
                                [&] { return !state->work.empty() || state->closed; });
    if (state->work.empty()) { // idle for too long, or closed with nothing left
      if (state->threads > 1 || state->closed)
        break;
      continue;
    }
    std::function<void()> work = std::move(state->work.front());
    state->work.pop_front();
    --state->idleThreads;
    lock.unlock();
    work();
    work = nullptr; // what it holds goes outside the lock
    lock.lock();
    ++state->idleThreads;
  }
  --state->idleThreads;
  --state->threads;
}

} // namespace NS
