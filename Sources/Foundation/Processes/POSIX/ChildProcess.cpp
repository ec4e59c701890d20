// Reaps children: one thread for all, woken by a descriptor per child.
//
// The thread waits in poll for the exit descriptors of the children, for the
// nearest deadline, and for a pipe that announces newcomers. Then it kills overdue
// children, takes in the newcomers, and reaps those that have ended. Another
// thread may reap a child earlier, by asking for its outcome; the child's mutex
// orders the two. A child without an exit descriptor, or without a place in the
// list for poll, is looked at every 20 ms. Once the thread has started, nothing
// here fails without memory, so that no child stays a zombie.
#include "Foundation/Processes/POSIX/ChildProcess.h"

#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Descriptors/Internal/Descriptors.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <limits>
#include <new>
#include <poll.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace NS {
namespace {

// The interval at which the thread looks whether a child without an exit
// descriptor has ended, in milliseconds.
constexpr int unwatchedInterval = 20;

ChildOutcome outcomeFromWaitStatus(int status) {
  if (WIFSIGNALED(status))
    return {.signalled = true, .status = WTERMSIG(status)};
  return {.signalled = false, .status = WEXITSTATUS(status)};
}

class Reaper {
public:
  void prepare();
  void adopt(ChildSlot slot) noexcept;

private:
  void run();
  void takeNewcomers();
  std::size_t roomForWaits();
  void waitForAnEnd();
  void killOverdue();
  void reapEnded();

  std::mutex mutex_; // guards the start and the newcomers
  bool started_ = false;
  bool isAwake_ = false; // the pipe holds a byte
  ChildSlot newcomers_;
  descriptors::PipeEnds wake_ = {-1, -1};
  ChildSlot watched_; // used by the thread alone
  std::vector<struct pollfd> waits_;
};

Reaper &reaper() {
  // Never destroyed: its thread runs until the very end of the process.
  static Reaper *instance = new Reaper;
  return *instance;
}

void Reaper::prepare() {
  std::lock_guard lock(mutex_);
  if (started_)
    return;
  if (wake_.reading < 0)
    wake_ = descriptors::openPipe();
  waits_.reserve(1);
  try {
    std::thread([this] { run(); }).detach();
  } catch (const std::system_error &failure) {
    throw ResourceShortage(std::string("no thread to wait for programs: ") + failure.what());
  }
  started_ = true;
}

void Reaper::adopt(ChildSlot slot) noexcept {
  std::lock_guard lock(mutex_);
  newcomers_.splice(newcomers_.end(), slot);
  // The pipe holds one byte while there are newcomers, so that this write never
  // blocks. After a failed write the next one wakes the thread.
  if (!isAwake_)
    isAwake_ = retrying([&] { return ::write(wake_.writing, "", 1); }) == 1;
}

void Reaper::run() {
  for (;;) {
    waitForAnEnd();
    killOverdue();
    takeNewcomers();
    reapEnded();
  }
}

void Reaper::takeNewcomers() {
  ChildSlot arrived;
  {
    std::lock_guard lock(mutex_);
    if (newcomers_.empty() && !isAwake_)
      return;
    // A remaining byte would keep this thread from ever waiting again.
    char byte;
    if (isAwake_)
      isAwake_ = retrying([&] { return ::read(wake_.reading, &byte, 1); }) != 1;
    arrived.swap(newcomers_);
  }
  for (const std::shared_ptr<ChildProcess> &child : arrived)
    child->exitDescriptor = child->openExitDescriptor();
  watched_.splice(watched_.end(), arrived);
}

// Reserves a place for the pipe and for each child, as far as memory allows;
// prepare() has reserved that of the pipe. Returns the number of places.
std::size_t Reaper::roomForWaits() {
  try {
    waits_.reserve(watched_.size() + 1);
  } catch (const std::bad_alloc &) { // then the thread looks at some at intervals
  }
  return waits_.capacity();
}

// Both in milliseconds, -1 for no time-out.
int earlierTimeout(int one, int other) {
  return one < 0 ? other : other < 0 ? one : std::min(one, other);
}

// The time until the deadline of a child that has not been killed yet.
int timeoutOf(const ChildProcess &child) {
  return child.deadline() && !child.wasKilled ? millisecondsUntil(*child.deadline()) : -1;
}

void Reaper::waitForAnEnd() {
  std::size_t room = roomForWaits();
  int timeout = -1;
  waits_.assign(1, {wake_.reading, POLLIN, 0});
  for (const std::shared_ptr<ChildProcess> &child : watched_) {
    timeout = earlierTimeout(timeout, timeoutOf(*child));
    if (child->exitDescriptor && waits_.size() < room)
      waits_.push_back({child->exitDescriptor.get(), POLLIN, 0});
    else
      timeout = earlierTimeout(timeout, unwatchedInterval);
  }
  // The wait may end for any reason; the callers then look at each child.
  static_cast<void>(::poll(waits_.data(), static_cast<nfds_t>(waits_.size()), timeout));
}

void Reaper::killOverdue() {
  for (const std::shared_ptr<ChildProcess> &child : watched_)
    if (timeoutOf(*child) == 0) {
      child->kill();
      child->wasKilled = true;
    }
}

void Reaper::reapEnded() {
  watched_.remove_if([](const std::shared_ptr<ChildProcess> &child) {
    if (!child->outcome())
      return false;
    child->exitDescriptor.reset();
    return true;
  });
}

} // namespace

int millisecondsUntil(ChildProcess::Clock::time_point end) {
  auto left =
      std::chrono::ceil<std::chrono::milliseconds>(end - ChildProcess::Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

std::optional<ChildOutcome> ChildProcess::outcome() {
  std::lock_guard lock(mutex_);
  look();
  return outcome_;
}

void ChildProcess::look() {
  if (outcome_)
    return;
  int status = 0;
  pid_t reaped = ::waitpid(identifier_, &status, WNOHANG);
  if (reaped == identifier_)
    outcome_ = outcomeFromWaitStatus(status);
  else if (reaped < 0 && errno == ECHILD)
    outcome_ = ChildOutcome{};
  if (outcome_)
    ended_.notify_all();
}

void ChildProcess::kill() {
  std::lock_guard lock(mutex_);
  look();
  if (!outcome_)
    ::kill(identifier_, SIGKILL);
}

Descriptor ChildProcess::openExitDescriptor() {
  std::lock_guard lock(mutex_);
  look();
  return outcome_ ? Descriptor() : Descriptor(descriptors::openExitDescriptor(identifier_));
}

void ChildProcess::waitUntilEnd() {
  std::unique_lock lock(mutex_);
  ended_.wait(lock, [this] { return outcome_.has_value(); });
}

void prepareToAdopt() {
  reaper().prepare();
}

void adopt(ChildSlot slot) noexcept {
  reaper().adopt(std::move(slot));
}

} // namespace NS
