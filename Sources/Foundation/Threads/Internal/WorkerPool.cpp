// An elastic pool of detached threads around one queue for each user.
//
// Each user with work has a line: a queue, and the number of its pieces under
// way. A free thread takes the first line that may begin a piece and moves that
// line to the end, so that users take turns. A line may begin a piece below both
// limits, that of all users and that of one. It may also begin its first piece
// above them, so that no user waits for another's work.
//
// submit() starts a thread when fewer threads are idle than pieces could begin.
// When the system has no further thread, the piece waits for the present ones.
// A thread ends after some idle time; the last one stays until the pool is
// closed and its lines are empty.
#include "Foundation/Threads/Internal/WorkerPool.h"

#include "Foundation/Base/Log.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace NS {
namespace {

// One user's work. Exists while the user has any.
struct Line {
  WorkerPool::User user;
  std::size_t underWay = 0;
  std::deque<std::function<void()>> waiting{};
};

using Lines = std::list<Line>;

} // namespace

// Shared with the threads, which may outlive the pool.
struct WorkerPool::State {
  State(WorkerLimits limitsOfWork, std::chrono::milliseconds idle, Preparation preparation)
      : limits(limitsOfWork), idleTime(idle), prepare(std::move(preparation)) {}

  Line &lineOf(User user) {
    auto found = std::find_if(lines.begin(), lines.end(),
                              [&](const Line &line) { return line.user == user; });
    return found == lines.end() ? lines.emplace_back(Line{user}) : *found;
  }

  bool mayBegin(const Line &line) const {
    if (line.waiting.empty())
      return false;
    return line.underWay == 0 || (underWay < limits.inAll && line.underWay < limits.ofOneUser);
  }

  // The number of waiting pieces that could begin at once with enough threads.
  std::size_t startable() const {
    std::size_t firsts = 0;
    std::size_t all = 0;
    for (const Line &line : lines) {
      std::size_t most = std::max<std::size_t>(limits.ofOneUser, 1);
      all += std::min(line.waiting.size(), most - std::min(most, line.underWay));
      firsts += !line.waiting.empty() && line.underWay == 0 ? 1u : 0u;
    }
    std::size_t room = limits.inAll - std::min(limits.inAll, underWay);
    return std::max(firsts, std::min(all, room));
  }

  // The next line by turn, which goes to the end of the list; end() when no line
  // may begin a piece.
  Lines::iterator nextLine() {
    auto line =
        std::find_if(lines.begin(), lines.end(), [&](const Line &each) { return mayBegin(each); });
    if (line != lines.end())
      lines.splice(lines.end(), lines, line);
    return line;
  }

  const WorkerLimits limits;
  const std::chrono::milliseconds idleTime;
  const Preparation prepare;
  std::mutex mutex;
  std::condition_variable workArrived;
  Lines lines; // the next one is at the front
  std::size_t underWay = 0;
  std::size_t threads = 1;     // the constructor's
  std::size_t idleThreads = 1; // from a thread's start until it takes work
  bool closed = false;
};

WorkerPool::WorkerPool(WorkerLimits limits, std::chrono::milliseconds idleTime, Preparation prepare)
    : state_(std::make_shared<State>(limits, idleTime, std::move(prepare))) {
  std::thread([state = state_] { workOn(state); }).detach();
}

WorkerPool::~WorkerPool() {
  std::lock_guard lock(state_->mutex);
  state_->closed = true;
  state_->workArrived.notify_all();
}

void WorkerPool::submit(std::function<void()> work, User user) {
  std::lock_guard lock(state_->mutex);
  state_->lineOf(user).waiting.push_back(std::move(work));
  if (state_->idleThreads >= state_->startable()) {
    state_->workArrived.notify_one();
    return;
  }
  try {
    std::thread([state = state_] { workOn(state); }).detach();
    ++state_->threads;
    ++state_->idleThreads;
  } catch (const std::system_error &error) {
    // The work stays queued for the present threads.
    Log("No further worker thread: %@", error.what());
  } catch (const std::bad_alloc &) { // the same, without memory for a message
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
  if (state->prepare)
    state->prepare();
  std::unique_lock lock(state->mutex);
  while (true) {
    auto line = state->lines.end();
    state->workArrived.wait_for(lock, state->idleTime, [&] {
      line = state->nextLine();
      return line != state->lines.end() || state->closed;
    });
    if (line == state->lines.end()) { // idle for too long, or closed
      // No piece waits for the last thread: with none under way, any may begin.
      if (state->threads > 1 || state->closed)
        break;
      continue;
    }
    std::function<void()> work = std::move(line->waiting.front());
    line->waiting.pop_front();
    ++line->underWay;
    ++state->underWay;
    --state->idleThreads;
    lock.unlock();
    work();
    work = nullptr; // its contents are destroyed outside the lock
    lock.lock();
    ++state->idleThreads;
    --state->underWay;
    if (--line->underWay == 0 && line->waiting.empty())
      state->lines.erase(line);
  }
  --state->idleThreads;
  --state->threads;
}

} // namespace NS
