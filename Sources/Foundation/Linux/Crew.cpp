// A bounded queue between the leader and its crew.
#include "Foundation/Linux/Crew.h"

#include "Foundation/Progress.h"

#include <exception>
#include <utility>

namespace NS {
namespace {

// Keeps each member at work while the leader is busy with its own pieces.
constexpr std::size_t mostWaitingEach = 8;

} // namespace

Crew::~Crew() {
  {
    std::lock_guard lock(mutex_);
    ending_ = true;
    waiting_.clear();
  }
  changed_.notify_all();
  for (std::thread &thread : threads_)
    thread.join();
}

bool Crew::offer(const std::string &piece) {
  {
    std::lock_guard lock(mutex_);
    if (waiting_.size() >= mostWaitingEach * members_)
      return false;
  }
  if (threads_.size() < members_ && !startMember() && threads_.empty())
    return false;
  {
    std::lock_guard lock(mutex_);
    waiting_.push_back(piece);
  }
  changed_.notify_one();
  return true;
}

bool Crew::startMember() {
  try {
    threads_.emplace_back([this, &progress = Progress::current()] {
      Progress::Scope scope(progress);
      workUntilEnd();
    });
    return true;
  } catch (const std::exception &) { // the system has no thread, or no memory for one
    return false;
  }
}

void Crew::finish() {
  std::unique_lock lock(mutex_);
  while (!waiting_.empty())
    workOffOne(lock);
  changed_.wait(lock, [&] { return waiting_.empty() && underWay_ == 0; });
}

void Crew::workUntilEnd() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return ending_ || !waiting_.empty(); });
    if (ending_)
      return;
    workOffOne(lock);
  }
}

void Crew::workOffOne(std::unique_lock<std::mutex> &lock) {
  std::string piece = std::move(waiting_.front());
  waiting_.pop_front();
  ++underWay_;
  lock.unlock();
  work_(piece);
  lock.lock();
  --underWay_;
  if (waiting_.empty() && underWay_ == 0)
    changed_.notify_all();
}

} // namespace NS
